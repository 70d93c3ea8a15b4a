// The wideband pitch tracker in figures that were worked out by hand or searched for.
#include "tests/support.h"

namespace {

// The block exponent follows the level within a frame, and rises by 11 a frame over silence.
TEST(Decimation, LevelsThatJump) {
    Stream stream(16000);
    const struct {
        int level;
        std::vector<int> exponents;
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

// The first accumulator is one below -309.5 units of the output.
TEST(Decimation, RoundsToTheNearest) {
    Stream stream(16000);
    std::int16_t in[180] = {};
    std::int16_t out[71];
    in[67] = -16777;
    std::fill(in + 165, in + 180, sample(5000)); // for an exponent of 0
    PLC_Decim(in, out, &stream.b.tracker);
    EXPECT_EQ(out[56], -310);
}

// Each rule of the coarse search where it turns: with one height one unit apart the pitch is another.
TEST(CoarsePitch, RulesAtTheirEdges) {
    struct {
        const char *rule;
        int period, first, prev;
        std::vector<int> heights;
        std::size_t at;
        int other, pitch, other_pitch;
    } const kEdges[] = {
        {"second multiple", 11, 5, 130, {4000, 4660, 8000}, 1, 4661, 264, 88},
        {"third multiple", 10, 1, 100, {6000, 2590}, 1, 2591, 159, 80},
        {"fourth multiple", 9, 7, 100, {2000, 1192, 8000, 2000, 4000}, 1, 1193, 144, 72},
        {"fifth multiple", 8, 5, 100, {2000, 5000, 1649, 8000, 9000, 6000}, 2, 1650, 128, 64},
        {"sixth multiple", 6, 5, 277, {6000, 4000, 1000, 8000, -723, 9000, 5000}, 4, -724, 48, 240},
        {"seventh", 5, 2, 100, {8000, 1000, 6000, 2000, 3000, 2061, 8000, 9000}, 5, 2060, 40, 80},
        {"shorter period", 11, 0, 44, {4359, 8000}, 0, 4360, 176, 88},
        {"shorter period near the last", 12, 2, 100, {9000, 2000, 3977}, 2, 3976, 288, 96},
        {"longer one near the last", 12, 10, 262, {3924, 6000, 2000, 8000}, 0, 3925, 192, 288},
        {"sub-multiple near the last", 12, 7, 86, {3000, -2000, 4000, 1485}, 3, 1486, 192, 96},
        {"no sub-multiple", 9, 0, 191, {7000, 2525, 8000, 6000}, 1, 2526, 288, 144},
        {"second pass", 11, 6, 100, {1000, -2000, 4059, 2000}, 2, 4060, 264, 176},
        {"no peak", 12, 8, 100, {973, 1000, -2000, 1000}, 0, 972, 40, 192},
        {"silence and direct current", 1, 0, 100, {0}, 0, 1000, 40, 40},
        {"eighth", 5, 0, 100, {1000, 1000, 1000, 1000, 1000, 1000, 8999, 1000}, 6, 9000, 80, 80},
    };
    for (auto edge : kEdges) {
        SCOPED_TRACE(edge.rule);
        EXPECT_EQ(coarse(pulses(71, edge.period, edge.first, edge.heights), edge.prev), edge.pitch);
        edge.heights[edge.at] = edge.other;
        EXPECT_EQ(coarse(pulses(71, edge.period, edge.first, edge.heights), edge.prev), edge.other_pitch);
    }
    for (const int period : {7, 10, 13}) EXPECT_EQ(coarse(pulses(71, period, 0, {8000}), 160), 8 * period);
    EXPECT_EQ(coarse(pulses(71, 14, 8, {3000, 1500, 2000}), 150), 224); // 112 is exactly half
    // By a few samples: index and thousands.
    using Few = std::vector<std::pair<std::size_t, int>>;
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
    for (const auto &c : kSparse) {
        Samples s(71);
        for (const auto &[at, thousands] : c.samples) s[at] = sample(1000 * thousands);
        EXPECT_EQ(coarse(s, c.prev), c.pitch) << c.rule;
    }
    // Near is within a quarter of the previous pitch.
    for (int prev = -25000; prev <= INT16_MAX; prev += prev > 60 && prev < 150 ? 1 : stride(31))
        EXPECT_EQ(coarse(pulses(71, 12, 7, {3000, -2000, 4000, 1486}), prev),
                  prev >= 77 && prev <= 128 ? 96 : 192);
}

// A signal that repeats exactly is found at its period if that is among the lags tried.
TEST(Refinement, LagsAtTheEndsOfTheRange) {
    constexpr struct {
        int pitch, first, last, window;
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

TEST(Refinement, WorkedFigures) {
    EXPECT_EQ(refine(sine(561, 101), INT16_MAX), refine(sine(561, 101), 444));
    for (const int p : {100, 102})
        EXPECT_EQ(refine(pulses(561, 100, 0, {20000}), p),
                  (Refined{100, 16384, 384, p, 0, 400000000, 400000000}));
    EXPECT_EQ(refine(sine(561, 101), 99), (Refined{101, 16384, 384, 99, 1, 1255668129, 1255668129}));
    // Loud samples that come in behind the first lag, by which the scale is judged: the sums saturate.
    Samples s(561);
    s[300] = 100;
    std::fill(s.begin() + 238, s.begin() + 244, INT16_MIN);
    std::fill(s.begin() + 441, s.begin() + 447, INT16_MIN);
    EXPECT_EQ(refine(s, 200), (Refined{199, 16384, 384, 120, 0, INT32_MAX, INT32_MAX}));
    // The running energy saturates and then falls below zero at the lags 202 and 203, the only ones that
    // correlate.
    s.assign(561, 0);
    s[242] = s[243] = s[361] = INT16_MIN;
    s[360] = INT16_MAX;
    s[358] = s[359] = 300;
    s[445] = -20000;
    EXPECT_EQ(refine(s, 200), (Refined{197, 4954, 116, 120, 0, 0, INT32_MAX}));
    // The least that correlates.
    s.assign(561, 0);
    s[363] = s[560] = -1;
    s[245] = s[445] = 1;
    EXPECT_EQ(refine(s, 200), (Refined{200, 16384, 384, 120, 0, 1, 1}));
}

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
