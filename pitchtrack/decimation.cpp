// Low-pass filter, decimation by 8 and the block-scaled history of decimated samples.
//
// A decimated sample with block exponent e is the filter's accumulator · 2^(e - 16). The history is kept with
// 3 bits of headroom. All output samples of a call have the same exponent: the smaller of the history's and
// that of the new samples.
#include "arith/fixed_point.h"
#include "arith/samples.h"
#include "cvsd_qor.h"

#include <algorithm>
#include <cstdint>

using namespace cvsd_qor;

constexpr std::int16_t bdf[60] = {1209,  728,   1120, 1460, 1845, 2202, 2533, 2809, 3030, 3169, 3207,  3124,
                                  2927,  2631,  2257, 1814, 1317, 789,  267,  -211, -618, -941, -1168, -1289,
                                  -1298, -1199, -995, -701, -348, -20,  165,  365,  607,  782,  885,   916,
                                  881,   790,   654,  490,  313,  143,  -6,   -126, -211, -259, -273,  -254,
                                  -210,  -152,  -89,  -30,  21,   58,   81,   89,   84,   66,   41,    17};

namespace {

constexpr int kFactor = 8;
constexpr int kFilter = 60; // coefficients
constexpr int kMemory = 60; // samples kept of the previous frame
constexpr int kFrame = 120; // samples
constexpr int kNew = kFrame / kFactor;
constexpr int kHistory = 56;               // decimated samples from frame to frame
constexpr int kKept = kHistory - kNew - 1; // of them, those that the next history takes from this one
constexpr int kOutput = kHistory + kNew;
constexpr int kHeadroom = 3; // bits kept free

// The coefficients in the order of the input, oldest first, with zeros in front that round their number up to
// whole vectors.
constexpr int kTaps = whole_vectors(kFilter);
constexpr AlignedSamples<kTaps> taps = [] {
    AlignedSamples<kTaps> oldest_first{};
    for (int k = 0; k < kFilter; ++k) oldest_first.at[kTaps - 1 - k] = bdf[k];
    return oldest_first;
}();

// No partial sum of products can leave 32 bits, nor be INT32_MIN.
static_assert([] {
    std::int64_t sum = 0;
    for (const int c : bdf) sum += c < 0 ? -c : c;
    return sum * 32768 <= INT32_MAX;
}());

// Blocks are padded with zeros to whole vectors.
constexpr int kPaddedOutput = whole_vectors(kOutput);
constexpr int kPaddedNew = whole_vectors(kNew);
static_assert(kPaddedOutput == kHistory + kPaddedNew);

struct Filtered {
    std::int32_t acc[kPaddedNew];
    int exponent; // left shift that leaves the headroom, -3..26; a right shift if negative
};

// One accumulator for the last sample of each group of 8. The exponent depends only on the highest bit of the
// largest magnitude, which is the highest bit that is set in any magnitude. Silence gets the exponent of a
// magnitude of 2.
Filtered filter(const std::int16_t *in) {
    Filtered f{};
    std::int32_t bits = 2;
    for (int m = 0; m < kNew; ++m) {
        const std::int16_t *oldest = in + kMemory + kFactor * (m + 1) - kTaps;
        const std::int32_t sum = dot_product(taps, oldest);
        f.acc[m] = sum;
        bits |= std::max(sum, -sum);
    }
    f.exponent = norm32(bits) - kHeadroom;
    return f;
}

// The left shift that leaves the samples for the history their headroom: 12 - p if the largest magnitude has
// p bits, and 11 for silence. It is -1..11 for a state that PLC_Decim left, and -3 or more for any other.
// -32768, which only such a state can hold, counts as 32767.
int headroom_of(const std::int16_t *out) {
    std::uint16_t bits = 1;
    for (int j = kNew; j < kPaddedOutput; ++j) {
        const std::int16_t v = out[j];
        bits |= static_cast<std::uint16_t>(std::max(v, static_cast<std::int16_t>(-v)));
    }
    return norm16(static_cast<std::int16_t>(std::min<int>(bits, INT16_MAX))) - kHeadroom;
}

} // namespace

void PLC_Decim(std::int16_t *in, std::int16_t *out, PitchTrackerState *state) {
    copy_samples<kMemory>(state->decim_mem, in);
    const auto [acc, new_exp] = filter(in);
    copy_samples<kMemory>(in + kFrame, state->decim_mem);

    const int common_exp = std::min<int>(state->decim_exp, new_exp);
    const int drop = state->decim_exp - common_exp; // bits that the history loses

    // common_exp is at most new_exp, so a shifted accumulator stays below 2^(31 - kHeadroom). Neither the
    // shift nor the rounding can overflow, and the result is at most 2^(15 - kHeadroom).
    AlignedSamples<kPaddedOutput> common;
    const BlockShift<std::int16_t> to_common(-drop);
    for (int j = 0; j < kHistory; ++j) common.at[j] = to_common(state->decim_hist[j]);
    const BlockShift<std::int32_t> scale(common_exp);
    for (int m = 0; m < kPaddedNew; ++m) common.at[kHistory + m] = high_half(scale(acc[m]) + 0x8000);
    copy_samples<kOutput>(common.at, out);

    // The history moves by one frame. Its first 40 samples come from the stored history, which still has the
    // bits that the output drops. Its last 16, one old and 15 new, come from the output.
    //
    // Let every |v >> drop| of these samples be below 2^p. Then samples from the output are shifted by 12 -
    // p, and those from the stored history, where |v| is below 2^(p + drop), by drop less. Both results are
    // within ±2^12. So nothing overflows, and no output of a stream is beyond 4096.
    const int headroom = headroom_of(common.at);
    const BlockShift<std::int16_t> restore(headroom - drop);
    for (int j = 0; j < kKept; ++j) state->decim_hist[j] = restore(state->decim_hist[j + kNew]);
    const BlockShift<std::int16_t> raise(headroom);
    for (int j = kKept; j < kHistory; ++j) state->decim_hist[j] = raise(common[kNew + j]);
    state->decim_exp = wrap16(common_exp + headroom);
}
