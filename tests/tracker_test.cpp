// The wideband pitch tracker in figures that were worked out by hand or searched for: levels that jump, each
// rule of the coarse search where it turns, lags at the ends of the range, sums that saturate, chains of
// known period.
#include "tests/support.h"

#include <cmath>
#include <numbers>

namespace {

// --- Decimation -----------------------------------------------------------------------------------------

struct Decimated {
    Samples out;
    int exponent;
};

Decimated decimate(Tracker &t, int level) {
    std::int16_t in[180];
    Decimated d{Samples(71), 0};
    std::fill_n(in + 60, 120, sample(level));
    PLC_Decim(in, d.out.data(), &t.state);
    d.exponent = t.state.decim_exp;
    return d;
}

TEST(Decimation, WorkedFigures) {
    Tracker t;
    Samples expected(71);
    const Samples rise = {849, 2201, 2088, 1842, 2209, 2167, 2153};
    std::fill(std::copy(rise.begin(), rise.end(), expected.begin() + 56), expected.end(), 2166);
    const Decimated first = decimate(t, 1000);
    EXPECT_EQ(first.out, expected);
    EXPECT_EQ(first.exponent, 2);
    std::fill(std::copy(expected.begin() + 56, expected.end(), expected.begin() + 41), expected.end(), 2166);
    EXPECT_EQ(decimate(t, 1000).out, expected);
}

// The block exponent follows the level within a frame, and rises by 11 a frame over silence.
TEST(Decimation, LevelsThatJump) {
    Tracker t;
    struct {
        int level;
        std::vector<int> exponents;
    } const kSteps[] = {{0, {37, 37}},      {1, {12, 12}},
                        {-32768, {-3, -3}}, {3, {-3, -3, -3, 3, 11, 11}},
                        {32767, {-3}},      {0, {-3, -3, -3, 3, 14, 25, 36, 37, 37}}};
    for (const auto &step : kSteps) {
        SCOPED_TRACE(testing::Message() << "level " << step.level);
        for (const int exponent : step.exponents) EXPECT_EQ(decimate(t, step.level).exponent, exponent);
    }
}

// --- Coarse search --------------------------------------------------------------------------------------

Samples sine(int period, int n) {
    Samples s;
    for (int i = 0; i < n; ++i)
        s.push_back(sample(std::lround(std::trunc(10000 * std::sin(2 * std::numbers::pi * i / period)))));
    return s;
}

// Pulses at every period-th sample, of the given heights in turn.
Samples pulses(int n, int period, int first, const std::vector<int> &heights) {
    Samples s;
    std::size_t k = 0;
    for (int i = 0; i < n; ++i)
        s.push_back(i >= first && (i - first) % period == 0 ? sample(heights[k++ % heights.size()])
                                                            : std::int16_t{0});
    return s;
}

TEST(CoarsePitch, WorkedFigures) {
    Samples ramp(71);
    for (std::size_t i = 0; i < 71; ++i) ramp[i] = sample(100 * static_cast<int>(i));
    Samples tie(71); // of the lags 30 and 36
    tie[70] = tie[40] = tie[34] = tie[8] = 5000;
    const Samples eighth =
        pulses(71, 5, 0, {1000, 1000, 1000, 1000, 1000, 1000, 9000, 1000}); // peak, the highest
    const std::pair<Samples, int> kCases[] = {{pulses(71, 1, 0, {0}), 40},
                                              {pulses(71, 1, 0, {1000}), 40},
                                              {pulses(71, 7, 0, {8000}), 56},
                                              {pulses(71, 10, 0, {8000}), 80},
                                              {pulses(71, 13, 0, {8000}), 104},
                                              {pulses(71, 10, 0, {8000, -8000}), 160},
                                              {ramp, 40},
                                              {sine(30, 71), 240},
                                              {tie, 240},
                                              {eighth, 80}};
    for (const auto &[signal, pitch] : kCases) EXPECT_EQ(coarse(signal, 100), pitch);
}

// Each rule where it turns: with one height one unit apart the pitch is another.
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
    };
    for (auto edge : kEdges) {
        SCOPED_TRACE(edge.rule);
        EXPECT_EQ(coarse(pulses(71, edge.period, edge.first, edge.heights), edge.prev), edge.pitch);
        edge.heights[edge.at] = edge.other;
        EXPECT_EQ(coarse(pulses(71, edge.period, edge.first, edge.heights), edge.prev), edge.other_pitch);
    }
}

TEST(CoarsePitch, NearMeansWithinAQuarterOfThePreviousPitch) {
    const Samples s = pulses(71, 12, 7, {3000, -2000, 4000, 1486});
    for (int prev = -25000; prev <= 32767; ++prev)
        ASSERT_EQ(coarse(s, prev), prev >= 77 && prev <= 128 ? 96 : 192) << prev;
}

// --- Refinement -----------------------------------------------------------------------------------------

TEST(Refinement, WorkedFigures) {
    const Samples train = pulses(561, 100, 0, {20000});
    for (const int p : {100, 102})
        EXPECT_EQ(refine(train, p), (Refined{100, 16384, 384, p, 0, 400000000, 400000000}));
    EXPECT_EQ(refine(sine(101, 561), 99), (Refined{101, 16384, 384, 99, 1, 1255668129, 1255668129}));
    // Outside the range of the coarse search the nearest pitch counts that the history allows.
    EXPECT_EQ(refine(train, INT16_MAX), refine(train, 500));
    EXPECT_EQ(refine(train, INT16_MIN), refine(train, 0));
}

// A signal that repeats exactly is found at its period if that is within reach.
TEST(Refinement, EndsOfTheRange) {
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

// Loud samples that the scale, judged by the first lag, does not see.
TEST(Refinement, SumsThatSaturate) {
    Samples s(561);
    std::fill(s.begin() + 238, s.begin() + 364, std::int16_t{4230});
    std::fill(s.begin() + 441, s.end(), INT16_MAX);
    EXPECT_EQ(refine(s, 200), (Refined{197, 16384, 384, 120, 0, INT32_MAX, 2147148000}));
    // The running energy saturates and then falls below zero at the lags 202 and 203, the only ones that
    // correlate.
    s.assign(561, 0);
    s[242] = s[243] = s[361] = INT16_MIN;
    s[360] = INT16_MAX;
    s[358] = s[359] = 300;
    s[445] = -20000;
    EXPECT_EQ(refine(s, 200), (Refined{197, 4954, 116, 120, 0, 0, INT32_MAX}));
}

// --- Chains ---------------------------------------------------------------------------------------------

TEST(PitchTracker, KnownPeriods) {
    const struct {
        Samples signal;
        int first_coarse, pitch;
    } kChains[] = {
        {Samples(1200), 40, 40}, {pulses(1200, 100, 0, {20000}), 99, 100}, {sine(80, 1200), 80, 80}};
    for (const auto &[signal, first_coarse, pitch] : kChains) {
        Tracker t;
        for (std::size_t at = 0; at < signal.size(); at += 120) {
            EXPECT_EQ(PLC_PitchTracker(&t.state, &signal[at]), 0);
            EXPECT_EQ(t.state.tracked_pitch, pitch);
            EXPECT_NEAR(t.state.coarse_pitch, at == 0 ? first_coarse : pitch, at == 0 ? 0 : 1);
        }
    }
}

} // namespace
