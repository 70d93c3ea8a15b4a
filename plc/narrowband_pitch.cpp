// The pitch search at 8000 Hz: plain cross-correlation of the newest speech with earlier speech, at every
// second lag and then beside the best one.
#include "arith/fixed_point.h"
#include "plc/block.h"

#include <algorithm>

using namespace cvsd_qor;

namespace {

constexpr int kWindow = 120; // corr_len at both rates
constexpr int kProductShift = 7;

// With a product of at most 2^30 shifted right by 7 a window's sum stays below 2^31: it needs no saturation.
static_assert((std::int64_t{kWindow} << (30 - kProductShift)) <= INT32_MAX);

std::int32_t correlation(const std::int16_t *newest, const std::int16_t *earlier) {
    std::int32_t sum = 0;
    for (int i = 0; i < kWindow; ++i) sum += (newest[i] * earlier[i]) >> kProductShift;
    return sum;
}

} // namespace

std::int32_t PLC_FindPitch_fix(const PlcBlock *block) {
    const Block &b = unwrap(block);
    const std::int16_t *newest = b.pitch_buf_end - b.corr_len;
    const std::int16_t *earliest = b.pitch_buf_end - b.corr_buf_len;
    // Shift j stands for the period pitch_max - j.
    const auto at_shift = [&](std::int32_t j) { return correlation(newest, earliest + j); };

    std::int32_t best = at_shift(0);
    std::int32_t shift = 0;
    for (std::int32_t j = b.decim; j <= b.pitch_range; j += b.decim) {
        const std::int32_t c = at_shift(j);
        if (c >= best) { // a tie goes to the shorter period
            best = c;
            shift = j;
        }
    }

    // The upper neighbour is taken from where the lower one left off: if that won, it is the coarse best
    // again.
    const std::int32_t lower = std::max(shift - (b.decim - 1), INT32_C(0));
    const std::int32_t lower_corr = at_shift(lower);
    if (lower_corr > best) {
        best = lower_corr;
        shift = lower;
    }
    const std::int32_t upper = std::min(shift + (b.decim - 1), b.pitch_range);
    if (at_shift(upper) > best) shift = upper;
    return b.pitch_max - shift;
}
