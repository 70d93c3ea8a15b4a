// The wideband pitch tracker on signals whose results are known: worked out by hand from the definition of
// each step, or found by a search that the test describes.
#include "tests/support.h"

namespace {

// The block exponent at constant levels. With 35488, the sum of the filter's coefficients, the accumulator is
// 35488 · level. A new exponent leaves it 3 bits of headroom: 12 at level 1, 11 at level 3, -3 at full scale.
// Silence counts as an accumulator of 2: 26, and 11 more as the history of zeros has 11 bits to spare. The
// output's exponent is the smaller of the new one and the history's, so after a loud signal the exponent
// stays until that signal has left the 56 samples of history, three frames later. Then it rises by at most 11
// a frame. In the fourth frame after full scale the history still holds the filter's tail of that level,
// about 44, which is 6 bits: 12 - 6 raises -3 to 3.
TEST(Decimation, LevelsThatJump) {
    Stream stream(16000);
    const struct {
        int level;
        std::vector<int> exponents; // after each frame
    } kSteps[] = {{0, {37, 37}},      {1, {12, 12}},
                  {-32768, {-3, -3}}, {3, {-3, -3, -3, 3, 11, 11}},
                  {32767, {-3}},      {0, {-3, -3, -3, 3, 14, 25, 36, 37, 37}}};
    for (const auto &step : kSteps) {
        for (const int exponent : step.exponents) {
            std::int16_t in[180];
            std::int16_t out[71];
            std::fill_n(in + 60, 120, sample(step.level));
            PLC_Decim(in, out, &stream.b.tracker);
            EXPECT_EQ(stream.b.tracker.decim_exp, exponent) << "at level " << step.level;
        }
    }
}

// The first of the new outputs ends at in[67], which the first coefficient, 1209, weights. With an exponent
// of 0 the output is the accumulator / 2^16: -16777 · 1209 is one below -309.5 · 2^16 and rounds to -310.
TEST(Decimation, RoundsToTheNearest) {
    Stream stream(16000);
    std::int16_t in[180] = {};
    std::int16_t out[71];
    in[67] = -16777;
    std::fill(in + 165, in + 180, sample(5000)); // loud enough for an exponent of 0
    PLC_Decim(in, out, &stream.b.tracker);
    EXPECT_EQ(out[56], -310);
}

// Each rule of the search where its outcome changes. Candidates are given in samples at 16000 Hz, their
// strength, c²/e, as a fraction of the strongest candidate's.
//
// The pulses of a row were chosen so that one rule decides. Then a bisection of heights[at] found two values
// one unit apart that give different pitches; rows with the same pitch twice needed none. If one row fails,
// its rule has changed: the fraction that it names, a comparison or a tolerance. If most rows fail, look at
// what comes before the choice: correlation, normalisation, peaks, interpolation.
TEST(CoarsePitch, RulesAtTheirEdges) {
    struct {
        const char *rule;
        int period, first;        // as in pulses()
        std::vector<int> heights; // as in pulses()
        int prev;                 // the previous pitch
        int pitch;                // the result
        std::size_t at;           // with heights[at] = other the result is other_pitch
        int other, other_pitch;
    } const kEdges[] = {
        // rule, period, first, heights, prev, pitch, at, other, other_pitch

        // A candidate is the period if it and its multiples are strong enough.
        {"2nd multiple, 0.70", 11, 5, {4000, 4660, 8000}, 130, 264, 1, 4661, 88},
        {"3rd multiple, 0.55", 10, 1, {6000, 2590}, 100, 159, 1, 2591, 80},
        {"4th multiple, 0.48", 9, 7, {2000, 1192, 8000, 2000, 4000}, 100, 144, 1, 1193, 72},
        {"5th multiple, 0.37", 8, 5, {2000, 5000, 1649, 8000, 9000, 6000}, 100, 128, 2, 1650, 64},
        {"6th multiple, 0.30", 6, 5, {6000, 4000, 1000, 8000, -723, 9000, 5000}, 277, 48, 4, -724, 240},
        {"7th multiple, 0.30", 5, 2, {8000, 1000, 6000, 2000, 3000, 2061, 8000, 9000}, 100, 40, 5, 2060, 80},
        {"period, 0.73", 11, 0, {4359, 8000}, 44, 176, 0, 4360, 88},
        {"period near prev, 0.40", 12, 2, {9000, 2000, 3977}, 100, 288, 2, 3976, 96},

        // A candidate near the previous pitch is kept. In the third row 216, then 144, is the strongest of
        // two that are near: no sub-multiple of 288, then a half of it.
        {"longer, 0.78", 12, 10, {3924, 6000, 2000, 8000}, 262, 192, 0, 3925, 288},
        {"shorter, 0.43", 12, 7, {3000, -2000, 4000, 1485}, 86, 192, 3, 1486, 96},
        {"216 or 144", 9, 0, {7000, 2525, 8000, 6000}, 191, 288, 1, 2526, 144},

        // A peak too weak to count: beside lags without correlation the comparison shifts its c²/e down to 0.
        // In the first row a trough, 264, counts instead. In the second the troughs are too weak too: 40 is
        // no pitch.
        {"weak peak, strong trough", 11, 6, {1000, -2000, 4059, 2000}, 100, 264, 2, 4060, 176},
        {"weak peak, weak troughs", 12, 8, {973, 1000, -2000, 1000}, 100, 40, 0, 972, 192},
        {"silence, direct current", 1, 0, {0}, 100, 40, 0, 1000, 40},
        // 320 is the strongest, but only seven peaks count.
        {"eighth peak", 5, 0, {1000, 1000, 1000, 1000, 1000, 1000, 8999, 1000}, 100, 80, 6, 9000, 80},
    };
    for (auto edge : kEdges) {
        SCOPED_TRACE(edge.rule);
        EXPECT_EQ(coarse(pulses(71, edge.period, edge.first, edge.heights), edge.prev), edge.pitch);
        edge.heights[edge.at] = edge.other;
        EXPECT_EQ(coarse(pulses(71, edge.period, edge.first, edge.heights), edge.prev), edge.other_pitch);
    }
}

// The same where a row has no figure that a bisection could move.
TEST(CoarsePitch, MoreEdges) {
    // Equal pulses correlate equally at every multiple of their period. The period wins, though its multiple
    // may be near the previous pitch.
    for (const int period : {7, 10, 13}) EXPECT_EQ(coarse(pulses(71, period, 0, {8000}), 160), 8 * period);
    // 112 is just half of the longest candidate, 224: not less. It is 38 from the previous pitch, more
    // than a quarter of it.
    EXPECT_EQ(coarse(pulses(71, 14, 8, {3000, 1500, 2000}), 150), 224);

    // By hand: at the lags 30 and 36 c²/e is 25² million / 50, and the first of equals wins. Only lag 41
    // reaches sample 0, but its -32768 alone is beyond the bound of the plain sums.
    //
    // From a search through random sparse signals for a candidate at the end of a tolerance: with the
    // strongest at 200, a candidate closer to 100 than 10 counts as its half (9.5 %, rounded), and 91 is near
    // the previous pitch. With 75 as the period its multiples are 150, which has 155 beside it, and 225,
    // where 239 is beyond 225 + 13.
    using Few = std::vector<std::pair<std::size_t, int>>; // index and thousands; all other samples are 0
    const Few kNearThird = {{38, -1}, {39, 1}, {48, 3}, {49, 3}, {50, 4}, {53, 6},
                            {54, 6},  {57, 5}, {58, 3}, {59, 4}, {69, 5}};
    const struct {
        const char *rule;
        int prev, pitch;
        Few samples;
    } kSparse[] = {{"tie of the lags 30 and 36", 100, 240, {{70, 5}, {40, 5}, {34, 5}, {8, 5}}},
                   {"loud sample in the longest lag alone", 100, 320, {{0, -33}, {30, 5}, {70, 5}, {41, -1}}},
                   {"just a half", 90, 91, {{44, 2}, {45, 2}, {46, 3}, {58, 3}, {59, 4}, {69, 5}, {70, 4}}},
                   {"no multiple", 302, 239, kNearThird}};
    for (const auto &row : kSparse) {
        Samples s(71);
        for (const auto &[at, thousands] : row.samples) s[at] = sample(1000 * thousands);
        EXPECT_EQ(coarse(s, row.prev), row.pitch) << row.rule;
    }
    // 96, a half of the strongest, wins if it is near the previous pitch: at most a quarter of that away.
    // Below about -26000 the 16-bit differences wrap.
    for (int prev = -25000; prev <= INT16_MAX; prev += prev > 60 && prev < 150 ? 1 : stride(31))
        EXPECT_EQ(coarse(pulses(71, 12, 7, {3000, -2000, 4000, 1486}), prev),
                  prev >= 77 && prev <= 128 ? 96 : 192);
}

// A signal that repeats exactly is found at its period if that is among the lags tried: those within 3 of the
// coarse pitch and within 40..320, or the first of them if none is. Silence gives the first lag.
TEST(Refinement, LagsAtTheEndsOfTheRange) {
    constexpr struct {
        int pitch, first, last, window; // coarse pitch, lags tried, samples compared
    } kEnds[] = {{36, 40, 40, 36},     {37, 40, 40, 37},     {38, 40, 41, 38},     {44, 41, 47, 44},
                 {119, 116, 122, 119}, {120, 117, 123, 120}, {121, 118, 124, 120}, {317, 314, 320, 120},
                 {323, 320, 320, 120}, {324, 321, 321, 120}};
    for (const auto &end : kEnds) {
        EXPECT_EQ(refine(Samples(561), end.pitch), (Refined{end.first, 0, 0, end.window, 3, 0, 0}));
        for (int lag = end.first - 1; lag <= end.last + 1; ++lag) {
            Random random(7);
            std::vector<int> noise(static_cast<std::size_t>(lag));
            for (int &v : noise) v = random.in(-999, 999);
            const int found = refine(pulses(561, 1, 0, noise), end.pitch)[0];
            EXPECT_EQ(found == lag, lag >= end.first && lag <= end.last) << end.pitch << " " << lag;
            EXPECT_TRUE(found >= end.first && found <= end.last) << end.pitch << " " << lag;
        }
    }
}

// Worked out by hand. A coarse pitch of 200 compares the window 441..560 with the segments of the lags
// 197..203: that of lag L begins at sample 441 - L. An amp_ratio of 16384 is 1, the largest, and its
// amp_weight is 384.
TEST(Refinement, WorkedFigures) {
    // The seven figures: lag, amp_ratio, amp_weight, refine_len, scale_shift, lag_corr, lag_energy.
    //
    // Coarse pitches beyond 444 are taken as 444.
    EXPECT_EQ(refine(sine(561, 101), INT16_MAX), refine(sine(561, 101), 444));
    // One pulse in the window and one in the segment: both sums are 20000².
    for (const int p : {100, 102})
        EXPECT_EQ(refine(pulses(561, 100, 0, {20000}), p),
                  (Refined{100, 16384, 384, p, 0, 400000000, 400000000}));
    // A sine of amplitude 10000 is too loud for 32 bits by one shift. 1255816376 is the sum of (sine >> 1)²
    // over the newest 99 samples, computed apart from this library. The quotient of equal amplitudes is
    // rounded down: 16383.
    EXPECT_EQ(refine(sine(561, 101), 99), (Refined{101, 16383, 383, 99, 1, 1255816376, 1255816376}));

    // Loud samples begin to enter with lag 198, after the first lag, which alone determines the scale. At 199
    // two of them are in the segment: correlation and energy reach 2 · 2^30 and saturate. Longer lags give
    // the same.
    Samples s(561);
    s[300] = 100;
    std::fill(s.begin() + 238, s.begin() + 244, INT16_MIN);
    std::fill(s.begin() + 441, s.begin() + 447, INT16_MIN);
    EXPECT_EQ(refine(s, 200), (Refined{199, 16384, 384, 120, 0, INT32_MAX, INT32_MAX}));

    // The sliding energy saturates at lag 197, where s[358] .. s[361] are in the segment, and again when
    // s[243] and s[242] enter. When the loud ones and then s[359] and s[358] leave, it falls below zero, at
    // the lags 202 and 203. These are the only ones that correlate, -20000 with s[243] and s[242], so the
    // first lag stays. Its amplitudes are 20000 and 300 + 300 + 32767 + 32767: 4954 is their ratio in Q14,
    // and 116 is 3/128 of that.
    s.assign(561, 0);
    s[242] = s[243] = s[361] = INT16_MIN;
    s[360] = INT16_MAX;
    s[358] = s[359] = 300;
    s[445] = -20000;
    EXPECT_EQ(refine(s, 200), (Refined{197, 4954, 116, 120, 0, 0, INT32_MAX}));

    // The smallest correlation: 1 at the lags 197, where the energy is 2, and 200, where it is 1.
    s.assign(561, 0);
    s[363] = s[560] = -1;
    s[245] = s[445] = 1;
    EXPECT_EQ(refine(s, 200), (Refined{200, 16384, 384, 120, 0, 1, 1}));
}

// Frames of silence, pulses and a sine. first_coarse is the coarse pitch of the first frame, before which
// there is silence: 40 is no pitch. Later frames may be one sample off.
TEST(PitchTracker, ChainsOfKnownPeriod) {
    const struct {
        Samples signal;
        int first_coarse, pitch;
    } kChains[] = {
        {Samples(1200), 40, 40}, {pulses(1200, 100, 0, {20000}), 99, 100}, {sine(1200, 80), 80, 80}};
    for (const auto &[signal, first_coarse, pitch] : kChains) {
        Stream stream(16000);
        PitchTrackerState &t = stream.b.tracker;
        for (std::size_t at = 0; at < signal.size(); at += 120) {
            EXPECT_EQ(PLC_PitchTracker(&t, &signal[at]), 0);
            EXPECT_EQ(t.tracked_pitch, pitch);
            EXPECT_NEAR(t.coarse_pitch, at == 0 ? first_coarse : pitch, at == 0 ? 0 : 1);
        }
    }
}

} // namespace
