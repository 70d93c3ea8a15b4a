// Low-pass filter, decimation by 8 and the block-scaled history of decimated samples.
//
// A decimated sample with block exponent e stands for accumulator · 2^(e - 16). The history is kept with 3
// bits of headroom; the output of a call is brought to one exponent, the smaller of the history's and the new
// samples'.
#include "arith/fixed_point.h"
#include "cvsd_qor.h"

#include <algorithm>
#include <array>
#include <cstdint>

using namespace cvsd_qor;

constexpr std::int16_t bdf[60] = {1209,  728,   1120, 1460, 1845, 2202, 2533, 2809, 3030, 3169, 3207,  3124,
                                  2927,  2631,  2257, 1814, 1317, 789,  267,  -211, -618, -941, -1168, -1289,
                                  -1298, -1199, -995, -701, -348, -20,  165,  365,  607,  782,  885,   916,
                                  881,   790,   654,  490,  313,  143,  -6,   -126, -211, -259, -273,  -254,
                                  -210,  -152,  -89,  -30,  21,   58,   81,   89,   84,   66,   41,    17};

namespace {

constexpr int kFactor = 8;
constexpr int kMemory = 60; // samples of the previous frame that the filter reaches back to
constexpr int kFrame = 120; // samples
constexpr int kNew = kFrame / kFactor;
constexpr int kHistory = 56; // decimated samples carried over
constexpr int kOutput = kHistory + kNew;
constexpr int kHeadroom = 3; // bits kept free in decim_hist

// The filter in the order of its input, oldest first, with zero taps in front that round its length up to 64.
constexpr int kTaps = 64;
constexpr auto taps = [] {
    std::array<std::int16_t, kTaps> t{};
    for (int k = 0; k < 60; ++k) t[static_cast<std::size_t>(kTaps - 1 - k)] = bdf[k];
    return t;
}();

// No partial sum of products can leave 32 bits.
static_assert([] {
    std::int64_t sum = 0;
    for (const int c : bdf) sum += c < 0 ? -c : c;
    return sum * 32768 <= INT32_MAX;
}());

// Blocks are padded with zeros to whole vectors.
using Output = std::array<std::int16_t, kOutput + 1>;

struct Filtered {
    std::array<std::int32_t, kNew + 1> acc;
    int exponent; // the left shifts that leave the largest magnitude its headroom
};

// One accumulator for the last sample of each group of 8. All that matters of the largest magnitude is its
// highest bit, which is the highest bit set in any.
Filtered filter(const std::int16_t *in) {
    Filtered f;
    std::int32_t bits = 2;
    for (int m = 0; m < kNew; ++m) {
        const std::int16_t *oldest = in + kMemory + kFactor * m + (kFactor - 1) - (kTaps - 1);
        std::int32_t sum = 0;
        for (int k = 0; k < kTaps; ++k) sum += taps[static_cast<std::size_t>(k)] * oldest[k];
        f.acc[static_cast<std::size_t>(m)] = sum;
        bits |= sum < 0 ? -sum : sum;
    }
    f.acc[kNew] = 0;
    f.exponent = norm32(bits) - kHeadroom;
    return f;
}

// The left shifts that leave the samples which go into the history their headroom.
int headroom_of(const Output &out) {
    std::uint16_t bits = 1;
    for (std::size_t j = kNew; j < out.size(); ++j)
        bits |= static_cast<std::uint16_t>(out[j] < 0 ? -out[j] : out[j]);
    return norm16(static_cast<std::int16_t>(std::min<int>(bits, INT16_MAX))) - kHeadroom;
}

// v · 2^k for a whole block: a left shift that the caller knows to fit, or an arithmetic right shift.
struct BlockShift {
    int left;
    int right;

    explicit constexpr BlockShift(int k) : left(std::max(k, 0)), right(std::clamp(-k, 0, 31)) {}
    constexpr std::int32_t operator()(std::int32_t v) const { return shift_left(v, left) >> right; }
};

} // namespace

void PLC_Decim(std::int16_t *in, std::int16_t *out, PitchTrackerState *state) {
    std::copy_n(state->decim_mem, kMemory, in);
    const auto [acc, new_exp] = filter(in);
    std::copy_n(in + kFrame, kMemory, state->decim_mem);

    const int excess = state->decim_exp - new_exp; // of the history's exponent over the new samples'
    const int drop = std::max(excess, 0);
    const int common_exp = excess < 0 ? state->decim_exp : new_exp; // new_exp at most, for any state

    // Shifted by new_exp at most, an accumulator stays below 2^(31 - kHeadroom): neither the shift nor the
    // rounding can overflow, and the result is at most 2^(15 - kHeadroom).
    alignas(16) Output common;
    const BlockShift to_common(-drop);
    for (std::size_t j = 0; j < kHistory; ++j)
        common[j] = static_cast<std::int16_t>(to_common(state->decim_hist[j]));
    const BlockShift scale(common_exp);
    for (std::size_t m = 0; m < acc.size(); ++m) common[kHistory + m] = high_half(scale(acc[m]) + 0x8000);
    std::copy_n(common.data(), kOutput, out);

    // The history moves on by a frame. What stays of it is shifted from its stored form, which keeps the bits
    // that the common exponent dropped; its last 16 samples come from the output. With 2^p above every |v >>
    // drop|, the headroom is 12 - p, and a stored v is below 2^(p + drop): either way the result is below
    // 2^12, so nothing saturates, and no output is beyond 4096.
    const int headroom = headroom_of(common);
    constexpr std::size_t kStays = kHistory - kNew - 1;
    const BlockShift restore(headroom - drop);
    for (std::size_t j = 0; j < kStays; ++j)
        state->decim_hist[j] = static_cast<std::int16_t>(restore(state->decim_hist[j + kNew]));
    const BlockShift raise(headroom);
    for (std::size_t j = kStays; j < kHistory; ++j)
        state->decim_hist[j] = static_cast<std::int16_t>(raise(common[j + kNew]));
    state->decim_exp = wrap16(common_exp + headroom);
}
