// Blocks of samples.
#pragma once

#include <cstdint>
#include <cstring>

namespace cvsd_qor {

// Copies n samples, none for n <= 0. `to` may overlap `from`. The standard algorithms check their ranges in
// hardened builds, by functions of the C++ run-time.
inline void copy_samples(const std::int16_t *from, std::int32_t n, std::int16_t *to) {
    if (n > 0) std::memmove(to, from, static_cast<std::size_t>(n) * sizeof *to);
}

} // namespace cvsd_qor
