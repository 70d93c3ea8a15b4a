// What encoder and decoder share: the state in registers and one sample's step through it.
//
// Two quantities are carried with an offset that takes the rounding out of the recurrence, on whose length
// the speed of both directions hangs:
//   - the accumulator 31 higher than in the record, so that rounding up in the leak becomes the floor of >>;
//   - the step 10241 lower, so that the same happens in its decay and the lower clamp is a test of the sign.
#pragma once

#include "arith/fixed_point.h"
#include "cvsd_qor.h"

#include <algorithm>
#include <cstdint>

namespace cvsd_qor {

constexpr std::int32_t kRaised = 31; // what the carried accumulator has over the record's
constexpr std::int32_t kAccumulatorMax = 2097151 + kRaised;
constexpr std::int32_t kAccumulatorMin = -2097151 + kRaised;

// a - ceil(a/32) on the carried scale, A = a + 31 before and after: ceil(a/32) is A >> 5, as >> floors.
constexpr std::int32_t leak(std::int32_t accumulator) { return accumulator - (accumulator >> 5); }

static_assert(leak(33 + kRaised) == 31 + kRaised && leak(-33 + kRaised) == -32 + kRaised);
static_assert(leak(1 + kRaised) == kRaised && leak(-1 + kRaised) == -1 + kRaised);

constexpr std::int32_t kStepMin = 10240;   // 10 PCM units
constexpr std::int32_t kStepMax = 1310720; // 1280 PCM units
constexpr std::int32_t kGrowth = 10240;
constexpr std::int32_t kStepOffset = kStepMin + 1; // what the record's step has over the carried one

// step - ceil(step/1024), at least kStepMin: with s = step - 10241, ceil(step/1024) is 11 + (s >> 10).
static_assert(kStepOffset == 10 * 1024 + 1);
constexpr std::int32_t decayed(std::int32_t s) {
    const std::int32_t t = s - 11 - (s >> 10);
    return t < 0 ? kStepMin - kStepOffset : t;
}

// step + 10240, at most kStepMax.
constexpr std::int32_t grown(std::int32_t s) { return std::min(s + kGrowth, kStepMax - kStepOffset); }

static_assert(decayed(0 - kStepOffset) == -1 && grown(0 - kStepOffset) == -1); // right after Init
static_assert(decayed(11264 - kStepOffset) == 11264 - 11 - kStepOffset);
static_assert(decayed(11265 - kStepOffset) == 11265 - 12 - kStepOffset);

struct Codec {
    std::int32_t accumulator; // kAccumulatorMin..kAccumulatorMax
    std::int32_t step;        // -1..kStepMax - kStepOffset; less only before the first sample

    // A record outside its documented ranges is brought into them, so that no arithmetic below can overflow.
    explicit Codec(const CvsdState &s)
        : accumulator(clamp(s.accumulator, kAccumulatorMin - kRaised, kAccumulatorMax - kRaised) + kRaised),
          step(clamp(s.step, 0, kStepMax) - kStepOffset) {}

    void store(CvsdState &s, std::int32_t run_bits) const {
        s = {accumulator - kRaised, step + kStepOffset, run_bits};
    }

    // The new step, then the accumulator from its leaked value by 1/16 of it: up for down = 0, down for -1.
    //
    // Both branches go one way for long: between two runs the step decays by what it has grown, which takes 8
    // samples at the largest step and hundreds at a small one. Runs follow each other only while the signal
    // is steeper than the step.
    void move(std::int32_t leaked, bool run, std::int32_t down) {
        if (run) [[unlikely]] {
            step = grown(step);
        } else {
            step = decayed(step);
        }
        const std::int32_t delta = (step + kStepOffset) >> 4;
        accumulator = (leaked - down) + (delta ^ down); // delta ^ -1 is -delta - 1
        if (accumulator < kAccumulatorMin || accumulator > kAccumulatorMax) [[unlikely]] {
            accumulator = clamp(accumulator, kAccumulatorMin, kAccumulatorMax);
        }
    }
};

// Samples are worked on in blocks, so that what does not hang on the recurrence runs in a loop of its own
// that vectorises.
constexpr std::int32_t kBlockBytes = kVector;

// Whole bytes that both lengths allow; 0 where either is too short or negative. At most 2^28 - 1, so that
// eight times it fits in 32 bits.
constexpr std::int32_t whole_bytes(std::int32_t bytes, std::int32_t samples) {
    return std::max(std::min(bytes, samples >> 3), INT32_C(0));
}

} // namespace cvsd_qor
