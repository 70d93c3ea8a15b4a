// The steps that the good-frame and the erased-frame path are made of.
#include "cvsd_qor.h"

#include <cstdint>
#include <cstring>

void plc_mem_copy(void *destination, const void *source, std::int32_t n) {
    auto *to = static_cast<unsigned char *>(destination);
    const auto *from = static_cast<const unsigned char *>(source);
    if (n < 1) return;
    const auto count = static_cast<std::size_t>(n);
    // Ascending order differs from a move only where the destination begins inside the source.
    const std::uintptr_t ahead =
        reinterpret_cast<std::uintptr_t>(to) - reinterpret_cast<std::uintptr_t>(from);
    if (ahead >= count) {
        std::memmove(to, from, count);
    } else {
        for (std::size_t i = 0; i < count; ++i) to[i] = from[i];
    }
}
