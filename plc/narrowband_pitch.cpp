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

// Out of line: the search's loop has a copy of its own.
[[gnu::noinline]] std::int32_t neighbour(const std::int16_t *newest, const std::int16_t *earlier) {
    return correlation(newest, earlier);
}

} // namespace

std::int32_t PLC_FindPitch_fix(const PlcBlock *block) {
    const Block &b = unwrap(block);
    const std::int16_t *newest = b.pitch_buf_end - b.corr_len;
    const std::int16_t *earliest = b.pitch_buf_end - b.corr_buf_len;
    // Shift j stands for the period pitch_max - j.

    std::int32_t best = INT32_MIN;
    std::int32_t shift = 0;
    for (std::int32_t j = 0; j <= b.pitch_range; j += b.decim) {
        const std::int32_t c = correlation(newest, earliest + j);
        if (c >= best) { // a tie goes to the shorter period
            best = c;
            shift = j;
        }
    }

    // The upper neighbour is taken from where the lower one left off: if that won, it is the coarse best
    // again.
    const std::int32_t lower = std::max(shift - (b.decim - 1), INT32_C(0));
    const std::int32_t lower_corr = neighbour(newest, earliest + lower);
    if (lower_corr > best) {
        best = lower_corr;
        shift = lower;
    }
    const std::int32_t upper = std::min(shift + (b.decim - 1), b.pitch_range);
    if (neighbour(newest, earliest + upper) > best) shift = upper;
    return b.pitch_max - shift;
}
