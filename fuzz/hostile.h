// What the fuzz targets share. Every buffer is a heap object of its exact size. So the address sanitizer,
// with its red zones around heap objects, finds each read and write outside a buffer.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <fuzzer/FuzzedDataProvider.h>
#include <random>
#include <vector>

using Samples = std::vector<std::int16_t>;

inline void check(bool holds) {
    if (!holds) std::abort();
}

// n samples from the fuzzer's input: the input itself, or from a few bytes of it random steps between
// two levels, a pulse train or noise, of any level.
inline Samples hostile(FuzzedDataProvider &in, std::size_t n) {
    Samples samples(n);
    const int kind = in.ConsumeIntegralInRange(0, 3);
    const int peak = in.ConsumeIntegral<std::int16_t>() >> in.ConsumeIntegralInRange(0, 15);
    const auto period = in.ConsumeIntegralInRange<std::size_t>(1, 160);
    std::minstd_rand random(in.ConsumeIntegral<std::uint16_t>() + 1U);
    for (std::size_t i = 0; i < n; ++i) {
        const auto noise = static_cast<std::int16_t>(random() >> 8);
        const int sample = kind == 0   ? in.ConsumeIntegral<std::int16_t>()
                           : kind == 1 ? (noise < 0 ? peak : -1 - peak)
                           : kind == 2 ? (i % period == 0 ? peak : 0)
                                       : (noise * peak) >> 15;
        samples[i] = static_cast<std::int16_t>(sample);
    }
    return samples;
}
