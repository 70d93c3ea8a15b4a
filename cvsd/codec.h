// What encoder and decoder share: the codec's state in registers and the step of one sample through it.
//
// CVSD follows the signal with an accumulator that moves by one step per sample, up or down as the bit says.
// The accumulator leaks toward zero, so that an error in the bits dies out. The step follows the slope of the
// signal: it grows while the last four bits are equal, which means that the accumulator does not keep up, and
// decays otherwise. For each sample:
//
//     leaked      = accumulator - ceil(accumulator / 32)
//     step        = step + 10240              if the last four bits are equal
//                   step - ceil(step / 1024)  if not
//     step        = step limited to 10240..1310720
//     accumulator = leaked - step / 16        if the bit is 1
//                   leaked + step / 16        if it is 0
//     accumulator = accumulator limited to ±2097151
//
// These are the parameters of Bluetooth's CVSD. At 64000 samples per second the accumulator leaks with a time
// constant of 32 samples or 0.5 ms, the step decays with one of 1024 samples or 16 ms. The accumulator has 64
// units per PCM unit and the step 1024, so step / 16 is the step in units of the accumulator.
//
// The code below carries both quantities with an offset. As >> rounds toward minus infinity, ceil(v / 2^k) is
// (v + 2^k - 1) >> k for either sign of v. That addition would lengthen the dependency chain from sample to
// sample, which limits the speed of both directions. The offsets absorb it:
//
//     A = accumulator + 31    ceil(accumulator / 32) = (accumulator + 31) >> 5 = A >> 5
//     S = step - 10241        ceil(step / 1024) = (step + 1023) >> 10 = (S + 11 * 1024) >> 10
//                                               = 11 + (S >> 10)
//
// The smallest step, 10240, is S = -1, so the lower limit is a test of the sign. On x86-64 with g++, encoding
// takes 11 % longer without the first offset and decoding 12 % longer without the second. With clang only the
// first one gains.
#pragma once

#include "arith/fixed_point.h"
#include "cvsd_qor.h"

#include <algorithm>
#include <cstdint>

namespace cvsd_qor {

constexpr std::int32_t kLeakOffset = 31; // A - accumulator
constexpr std::int32_t kAccumulatorLimit = 2097151;
constexpr std::int32_t kHighest = kAccumulatorLimit + kLeakOffset; // A at its limits
constexpr std::int32_t kLowest = -kAccumulatorLimit + kLeakOffset;

// A, leaked.
constexpr std::int32_t leak(std::int32_t a) { return a - (a >> 5); }

static_assert(leak(33 + kLeakOffset) == 31 + kLeakOffset && leak(-33 + kLeakOffset) == -32 + kLeakOffset);
static_assert(leak(1 + kLeakOffset) == 0 + kLeakOffset && leak(-1 + kLeakOffset) == -1 + kLeakOffset);

constexpr std::int32_t kStepMin = 10240;           // 10 PCM units
constexpr std::int32_t kStepMax = 1310720;         // 1280 PCM units
constexpr std::int32_t kGrowth = 10240;            // 10 PCM units
constexpr std::int32_t kStepOffset = kStepMin + 1; // step - S

static_assert(kStepOffset + 1023 == 11 * 1024);

// S after a run of equal bits and after any other bits, limited.
constexpr std::int32_t grown(std::int32_t s) { return std::min(s + kGrowth, kStepMax - kStepOffset); }
constexpr std::int32_t decayed(std::int32_t s) {
    const std::int32_t t = s - 11 - (s >> 10);
    return t < 0 ? kStepMin - kStepOffset : t;
}

static_assert(decayed(0 - kStepOffset) == -1 && grown(0 - kStepOffset) == -1); // right after Init
static_assert(decayed(11264 - kStepOffset) == 11264 - 11 - kStepOffset);
static_assert(decayed(11265 - kStepOffset) == 11265 - 12 - kStepOffset);

struct Codec {
    std::int32_t accumulator; // A: kLowest..kHighest
    std::int32_t step;        // S: -1..kStepMax - kStepOffset; less only before the first sample

    // A record outside its documented ranges is limited to them, so that no arithmetic below can overflow; a
    // step from 0 to the smallest one is taken as it is and limited with the first sample, as after Init. The
    // caller keeps the last four bits of the stream.
    explicit Codec(const CvsdState &s)
        : accumulator(clamp(s.accumulator, -kAccumulatorLimit, kAccumulatorLimit) + kLeakOffset),
          step(clamp(s.step, 0, kStepMax) - kStepOffset) {}

    void store(CvsdState &s, std::int32_t run_bits) const {
        s = {accumulator - kLeakOffset, step + kStepOffset, run_bits};
    }

    // Adapts the step, then moves the accumulator from its leaked value. run: the last four bits are equal.
    // down_mask: the sample's bit in every place, -1 for down and 0 for up.
    //
    // The branches are well predicted. Runs follow each other only while the signal is steeper than the step:
    // what one run adds takes 8 samples to decay at the largest step and hundreds at a small one.
    void move(std::int32_t leaked, bool run, std::int32_t down_mask) {
        if (run) [[unlikely]] {
            step = grown(step);
        } else {
            step = decayed(step);
        }

        // leaked ± delta: delta ^ -1 is -delta - 1, and the mask subtracted gives back the 1.
        const std::int32_t delta = (step + kStepOffset) >> 4;
        accumulator = (leaked - down_mask) + (delta ^ down_mask);
        if (accumulator < kLowest || accumulator > kHighest) [[unlikely]]
            accumulator = clamp(accumulator, kLowest, kHighest);
    }
};

// Samples are processed in blocks. The conversion between PCM and accumulator units does not depend on the
// previous sample: it is a separate loop over a block, which the compiler vectorises.
constexpr std::int32_t kBlockBytes = kVector;

// Whole bytes that both lengths allow; 0 where either is too short or negative. At most 2^28 - 1, so that
// eight times it fits in 32 bits.
constexpr std::int32_t whole_bytes(std::int32_t bytes, std::int32_t samples) {
    return std::max(std::min(bytes, samples >> 3), INT32_C(0));
}

} // namespace cvsd_qor
