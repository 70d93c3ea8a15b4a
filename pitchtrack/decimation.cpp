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
#include <iterator>
#include <numeric>

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

// The filter in the order of its input, oldest first, with zero taps in front that round its length up to
// whole vectors.
constexpr int kTaps = whole_vectors(kMemory);
constexpr auto taps = [] {
    std::array<std::int16_t, kTaps> t{};
    std::reverse_copy(std::begin(bdf), std::end(bdf), t.end() - kMemory);
    return t;
}();

// No partial sum of products can leave 32 bits.
static_assert([] {
    std::int64_t sum = 0;
    for (const int c : bdf) sum += c < 0 ? -c : c;
    return sum * 32768 <= INT32_MAX;
}());

// Blocks are padded with zeros to whole vectors.
using Output = std::array<std::int16_t, whole_vectors(kOutput)>;
using Accumulators = std::array<std::int32_t, whole_vectors(kNew)>;
static_assert(Output{}.size() == kHistory + Accumulators{}.size());

struct Filtered {
    Accumulators acc;
    int exponent; // the left shifts that leave the largest magnitude its headroom
};

// One accumulator for the last sample of each group of 8. All that matters of the largest magnitude is its
// highest bit, which is the highest bit set in any.
Filtered filter(const std::int16_t *in) {
    Filtered f{};
    std::int32_t bits = 2;
    for (int m = 0; m < kNew; ++m) {
        const std::int16_t *oldest = in + kMemory + kFactor * (m + 1) - kTaps;
        const std::int32_t sum = std::inner_product(taps.begin(), taps.end(), oldest, 0);
        f.acc[static_cast<std::size_t>(m)] = sum;
        bits |= std::max(sum, -sum);
    }
    f.exponent = norm32(bits) - kHeadroom;
    return f;
}

// The left shifts that leave the samples which go into the history their headroom.
int headroom_of(const Output &out) {
    std::uint16_t bits = 1;
    for (std::size_t j = kNew; j < out.size(); ++j)
        bits |= static_cast<std::uint16_t>(std::max<std::int32_t>(out[j], -out[j]));
    return norm16(static_cast<std::int16_t>(std::min<int>(bits, INT16_MAX))) - kHeadroom;
}

// v · 2^k for a whole block: a left shift that the caller knows to fit, or an arithmetic right shift.
struct BlockShift {
    int left;
    int right;

    explicit constexpr BlockShift(int k) : left(std::max(k, 0)), right(std::clamp(-k, 0, kMaxShift)) {}
    constexpr std::int32_t operator()(std::int32_t v) const { return shift_left(v, left) >> right; }
};

} // namespace

void PLC_Decim(std::int16_t *in, std::int16_t *out, PitchTrackerState *state) {
    std::copy_n(state->decim_mem, kMemory, in);
    const auto [acc, new_exp] = filter(in);
    std::copy_n(in + kFrame, kMemory, state->decim_mem);

    const int common_exp = std::min<int>(state->decim_exp, new_exp);
    const int drop = state->decim_exp - common_exp; // bits that the history loses

    // Shifted by new_exp at most, an accumulator stays below 2^(31 - kHeadroom): neither the shift nor the
    // rounding can overflow, and the result is at most 2^(15 - kHeadroom).
    alignas(16) Output common;
    const BlockShift to_common(-drop);
    const auto behind = std::transform(std::begin(state->decim_hist), std::end(state->decim_hist),
                                       common.begin(), [=](int v) { return wrap16(to_common(v)); });
    const BlockShift scale(common_exp);
    std::transform(acc.begin(), acc.end(), behind, [=](int v) { return high_half(scale(v) + 0x8000); });
    std::copy_n(common.data(), kOutput, out);

    // The history moves on by a frame. What stays of it is shifted from its stored form, which keeps the bits
    // that the common exponent dropped; its last 16 samples come from the output. With 2^p above every |v >>
    // drop|, the headroom is 12 - p, and a stored v is below 2^(p + drop): either way the result is
    // within ±2^12, so nothing saturates, and no output is beyond 4096.
    const int headroom = headroom_of(common);
    const BlockShift restore(headroom - drop);
    std::int16_t *rest =
        std::copy(state->decim_hist + kNew, std::end(state->decim_hist) - 1, state->decim_hist);
    std::transform(state->decim_hist, rest, state->decim_hist, [=](int v) { return wrap16(restore(v)); });
    const BlockShift raise(headroom);
    std::transform(common.data() + kHistory - 1, common.data() + kOutput, rest,
                   [=](int v) { return wrap16(raise(v)); });
    state->decim_exp = wrap16(common_exp + headroom);
}
