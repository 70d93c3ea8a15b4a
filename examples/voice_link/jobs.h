// Work in many pieces, on several threads.
#pragma once

#include <cstddef>
#include <functional>

// Calls work(0) to work(count - 1), on that many threads at once. If a piece throws FileError, this is
// reported on standard error and does not stop the others. Any other exception stops the start of further
// pieces and is thrown here. Returns whether no piece failed.
bool each(std::size_t count, std::size_t threads, const std::function<void(std::size_t)> &work);
