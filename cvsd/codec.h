// What encoder and decoder share: the state in registers and one sample's step through it.
//
// Two quantities are held in a form that makes the recurrence short. The step is carried as its excess over the
// smallest step, so that the lower clamp is a sign test. The run bits stand in the top of a shift register into which
// each new bit enters at bit 31: after eight samples the register's top byte is the byte of the stream, and its top
// four bits are the record's run_bits as they stand.
#pragma once

#include "arith/fixed_point.h"
#include "cvsd_qor.h"

#include <algorithm>
#include <cstdint>

namespace cvsd_qor {

constexpr std::int32_t kAccumulatorMax = 2097151; // 2^21 - 1; the bounds are symmetric
constexpr std::int32_t kStepMin = 10240;          // 10 PCM units
constexpr std::int32_t kStepMax = 1310720;        // 1280 PCM units
constexpr std::int32_t kExcessMax = kStepMax - kStepMin;
constexpr std::int32_t kDeltaMax = kStepMax >> 4;

// a - ceil(a/32) for a >= 0 and a + floor(-a/32) below. Both are a - ceil(a/32): for a < 0, floor(-a/32) is
// -ceil(a/32). And ceil(a/32) is (a + 31) >> 5 for either sign, as >> floors.
constexpr std::int32_t leak(std::int32_t accumulator) { return accumulator - ((accumulator + 31) >> 5); }

static_assert(leak(33) == 31 && leak(-33) == -32 && leak(1) == 0 && leak(-1) == -1);

constexpr std::int32_t clamp_accumulator(std::int32_t a) {
    return std::clamp(a, -kAccumulatorMax, kAccumulatorMax);
}

// The step after a bit that completes a run of four, and after one that does not:
// step + 10240, and step - ceil(step/1024), each clamped. As kStepMin is 10 · 1024, ceil(step/1024) is
// 10 + ceil(excess/1024).
static_assert(kStepMin == 10 * 1024);
constexpr std::int32_t grown(std::int32_t excess) { return std::min(excess + 10240, kExcessMax); }
constexpr std::int32_t decayed(std::int32_t excess) {
    return std::max(excess - 10 - ((excess + 1023) >> 10), INT32_C(0));
}

// step >> 4, the step on the accumulator's scale.
constexpr std::int32_t delta(std::int32_t excess) { return (excess >> 4) + (kStepMin >> 4); }
static_assert(kStepMin % 16 == 0);

struct Codec {
    std::int32_t accumulator;
    std::int32_t excess;   // step - kStepMin; below 0 only before the first sample
    std::uint32_t history; // bit 31 the newest bit

    // A record outside its documented ranges is brought into them, so that no arithmetic below can overflow.
    explicit Codec(const CvsdState &s)
        : accumulator(clamp_accumulator(s.accumulator)),
          excess(std::clamp(s.step, INT32_C(0), kStepMax) - kStepMin),
          history(static_cast<std::uint32_t>(s.run_bits) << 28) {}

    void store(CvsdState &s) const {
        s = {accumulator, excess + kStepMin, static_cast<std::int32_t>(history >> 28)};
    }

    // Enters one bit, given as a mask (-1 for down, 0 for up), and moves from the leaked accumulator by the new step.
    void step(std::int32_t leaked, std::int32_t down) {
        history = history >> 1 | (static_cast<std::uint32_t>(down) & 0x80000000U);
        const bool run = history + 0x10000000U < 0x20000000U; // the top four bits are 1111 or 0000
        excess = run ? grown(excess) : decayed(excess);
        accumulator = clamp_accumulator(leaked + ((delta(excess) ^ down) - down));
    }
};

// Whole bytes that both lengths allow; 0 where either is too short or negative. At most 2^28 - 1, so that
// eight times it fits in 32 bits.
constexpr std::int32_t whole_bytes(std::int32_t bytes, std::int32_t samples) {
    return std::max(std::min(bytes, samples >> 3), INT32_C(0));
}

} // namespace cvsd_qor
