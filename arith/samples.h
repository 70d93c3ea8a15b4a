// Blocks of samples: copies and sums.
#pragma once

#include "arith/fixed_point.h"

#include <cstdint>
#include <cstring>

#if __ARM_FEATURE_SIMD32 && !__ARM_NEON
#include <arm_acle.h>
#define CVSD_QOR_PAIRS 1
#endif

namespace cvsd_qor {

// Copies n samples, or none for n <= 0. `to` may overlap `from`. Not a standard algorithm: in hardened builds
// its check of the range calls the C++ run-time.
inline void copy_samples(const std::int16_t *from, std::int32_t n, std::int16_t *to) {
    if (n > 0) std::memmove(to, from, static_cast<std::size_t>(n) * sizeof *to);
}

// Copies N samples that do not overlap. It compiles to a few moves instead of a call.
template <int N>
void copy_samples(const std::int16_t *from, std::int16_t *to) {
    std::memcpy(to, from, std::size_t{N} * sizeof *to);
}

// Calls step(0) .. step(N - 1), where a step adds to 32-bit sums. N is constant and a whole number of
// vectors, so g++ 12 and clang 14 take eight steps at once on x86-64 and aarch64, at -O2 and -O3. Sums of
// products of 16-bit values become multiply-adds. Without the pragma clang takes four steps at once and
// interleaves them, and the decimation takes four times as long. On a machine without vectors clang warns
// that it cannot obey the pragma.
template <int N, class Step>
[[gnu::always_inline]] inline void accumulate(Step step) {
    static_assert(N % kVector == 0);
#if defined(__clang__) && (defined(__SSE2__) || defined(__ARM_NEON))
#pragma clang loop vectorize_width(8) interleave_count(1)
#endif
    for (int i = 0; i < N; ++i) step(i);
}

// Sum of term(0) .. term(N - 1), modulo 2^32. If the caller's bound keeps it within 32 bits, it is exact in
// any order of the additions.
template <int N, class Term>
[[gnu::always_inline]] inline std::int32_t sum_of(Term term) {
    std::uint32_t sum = 0;
    accumulate<N>([&](int i) { sum += static_cast<std::uint32_t>(term(i)); });
    return static_cast<std::int32_t>(sum);
}

// N samples, aligned like vectors. On x86-64 this saves the sums below one load per vector.
template <int N>
struct alignas(kVector * sizeof(std::int16_t)) AlignedSamples {
    std::int16_t at[N];
    std::int16_t operator[](int i) const { return at[i]; }
};

// Sum of a[i] * b[i], modulo 2^32. Small Arm cores have an instruction that multiplies two pairs of samples
// and adds the products. Compilers do not use it by themselves. Without it a stream at 16000 Hz takes a
// quarter more instructions on a Cortex-M4.
template <int N>
[[gnu::always_inline]] inline std::int32_t dot_product(const AlignedSamples<N> &a, const std::int16_t *b) {
#if CVSD_QOR_PAIRS
    std::int32_t sum = 0;
    for (int i = 0; i < N; i += 2) {
        int16x2_t a2, b2;
        std::memcpy(&a2, a.at + i, sizeof a2);
        std::memcpy(&b2, b + i, sizeof b2);
        sum = __smlad(a2, b2, sum);
    }
    return sum;
#else
    return sum_of<N>([&a, b](int i) { return a[i] * b[i]; });
#endif
}

// Out of line: inside a loop over lags g++ 12 would put neighbouring lags into the lanes of a vector, which
// doubles the instructions on aarch64.
template <int N>
[[gnu::noinline]] std::int32_t sum_of_products(const AlignedSamples<N> &a, const std::int16_t *b) {
    return dot_product(a, b);
}

} // namespace cvsd_qor
