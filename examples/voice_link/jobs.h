// Work that comes in many pieces, on several threads.
#pragma once

#include <cstddef>
#include <functional>

// Calls work(0) to work(count - 1), on that many threads at once. A piece that throws FileError is reported
// on standard error and does not stop the others; after anything else no further piece is begun, and it is
// thrown here. Returns whether all went well.
bool each(std::size_t count, std::size_t threads, const std::function<void(std::size_t)> &work);
