// Concealment: whole streams first, then what only the primitives show.
#include "tests/support.h"

#include <cstring>
#include <utility>

namespace {

using cvsd_qor::Block;

TEST(Stream, LossFreeOutputIsTheInputAtAConstantDelay) {
    for (const int rate : {8000, 16000}) {
        Stream stream(rate);
        Random random(1);
        const Samples in = hostile(random, 1200);
        const std::size_t delay = rate == 8000 ? 30 : 60;
        for (std::size_t at = 0; at < in.size();)
            for (const std::int16_t v : stream.frame(in, at, false)) {
                EXPECT_EQ(v, at < delay ? 0 : in[at - delay]);
                ++at;
            }
    }
}

// A periodic signal is continued as if nothing were missing, but for the fade over the burst. The join ends
// where it should, without a step.
TEST(Stream, BurstsFadeAndJoin) {
    constexpr struct {
        int rate, period, ola_len, reconverge, steepest;
    } kKinds[] = {{8000, 50, 12, 0, 1300}, {16000, 80, 20, 36, 1000}};
    for (const auto &kind : kKinds) {
        for (const int burst : {1, 2, 3, 5, 6, 7, 40}) {
            SCOPED_TRACE(testing::Message() << kind.rate << " Hz, burst of " << burst);
            Stream stream(kind.rate);
            const Block &b = stream.b;
            const Samples s = sine(100 * b.frame_len, kind.period);
            std::size_t at = 0;
            const auto step = [&](bool lost) {
                stream.frame(s, std::exchange(at, at + static_cast<std::size_t>(b.frame_len)), lost);
            };
            for (int frame = 0; frame < 40; ++frame) step(false);
            for (int lost = 0; lost < burst; ++lost) {
                EXPECT_EQ(b.erase_count, lost);
                step(true);
                for (int i = 0; i < b.frame_len; ++i) {
                    const double gain =
                        lost == 0 ? 1 : std::max(1.25 - 0.25 * (lost + 1.0 * i / b.frame_len), 0.0);
                    ASSERT_NEAR(stream.newest()[i], gain * s.data()[(40 + lost) * b.frame_len + i],
                                lost < 5 ? 30 : 0);
                }
            }
            EXPECT_EQ(b.ola_len, kind.ola_len);
            step(false);
            EXPECT_EQ(b.erase_count, 0);
            EXPECT_EQ(b.reconverge_len, kind.reconverge);
            const std::int16_t *joined = stream.newest();
            const std::int16_t *received = s.data() + (40 + burst) * b.frame_len;
            int end = b.frame_len;
            while (end > 0 && joined[end - 1] == received[end - 1]) --end;
            const int expected = std::min(kind.reconverge + kind.ola_len + 32 * (burst - 1), b.frame_len);
            EXPECT_TRUE(end == expected || end == expected - 1) << end; // the last weight is all but one
            for (int i = 0; i < b.frame_len; ++i) {
                EXPECT_LE(std::abs(joined[i] - joined[i - 1]), kind.steepest) << i;
                EXPECT_TRUE(burst < 6 || i >= kind.reconverge || joined[i] == 0) << i;
            }
        }
    }
}

TEST(Stream, LossBeforeAnyGoodFrameIsSilence) {
    for (const int rate : {8000, 16000}) {
        Stream stream(rate);
        for (int i = 0; i < 10; ++i) {
            const Samples f = stream.frame(Samples(120, 12345), 0, true);
            EXPECT_EQ(f, Samples(f.size()));
            EXPECT_EQ(stream.b.pitch, rate == 8000 ? 30 : 40);
            EXPECT_EQ(stream.b.ola_len, rate == 8000 ? 7 : 10);
        }
    }
}

// An outage of any length ends like one of forty frames; the count stops at its largest value.
TEST(Stream, OutageWithoutEnd) {
    for (const int rate : {8000, 16000}) {
        Stream endless(rate);
        Stream forty(rate);
        const Samples voice = speech(rate);
        for (std::size_t at = 0; at < 40000; at += 120) {
            if (at == 34560) endless.b.erase_count = INT32_MAX - 1;
            const bool lost = at >= 30000 && at < 34800;
            EXPECT_EQ(endless.frame(voice, at, lost), forty.frame(voice, at, lost));
            EXPECT_EQ(endless.b.erase_count, at == 34560 || at == 34680 ? INT32_MAX : forty.b.erase_count);
        }
    }
}

// --- Construction ---------------------------------------------------------------------------------------

bool all(const void *from, std::size_t n, unsigned char value) {
    const auto *bytes = static_cast<const unsigned char *>(from);
    return std::all_of(bytes, bytes + n, [=](unsigned char v) { return v == value; });
}

// A block comes back from use exactly as it was constructed, and nothing around it is touched.
TEST(Construction, RestartsAUsedBlock) {
    EXPECT_EQ(g711plc_GetMemorySize_v2(), 6496);
    for (const int rate : {8000, 16000}) {
        std::array<PlcBlock, 3> memory;
        std::memset(&memory, 0xA5, sizeof memory);
        ASSERT_EQ(g711plc_construct_v2(&memory[1], rate), 0);
        std::array<unsigned char, sizeof(PlcBlock)> fresh;
        std::memcpy(&fresh, &memory[1], sizeof fresh);
        Random random(2);
        Samples s = hostile(random, 12000);
        for (std::size_t at = 0; at < s.size(); at += 120)
            (random.in(0, 2) == 0 ? g711plc_dofe_v2 : g711plc_addtohistory_v2)(&memory[1], &s[at]);
        EXPECT_EQ(all(&cvsd_qor::unwrap(&memory[1]).tracker, sizeof(PitchTrackerState), 0), rate == 8000);
        EXPECT_NE(std::memcmp(&fresh, memory[1].opaque.bytes, sizeof fresh), 0);
        ASSERT_EQ(g711plc_construct_v2(&memory[1], rate), 0);
        EXPECT_EQ(std::memcmp(&fresh, memory[1].opaque.bytes, sizeof fresh), 0);
        EXPECT_TRUE(all(&memory[0], sizeof(PlcBlock), 0xA5) && all(&memory[2], sizeof(PlcBlock), 0xA5));
    }
}

TEST(Construction, RefusesOtherRates) {
    for (const std::int32_t rate : {0, 11025, 44100, 7999, 16001, -8000}) {
        PlcBlock block;
        std::memset(&block, 0xA5, sizeof block);
        EXPECT_EQ(g711plc_construct_v2(&block, rate), -1);
        EXPECT_EQ(std::exchange(cvsd_qor::unwrap(&block).sample_rate, 0), rate);
        EXPECT_TRUE(all(&block, sizeof block, 0));
    }
}

// --- Primitives -----------------------------------------------------------------------------------------

// A sample of -32768 shows the weight that it was given: it becomes the weight's negative.
TEST(Primitives, WeightsOfFades) {
    const Samples zero(200);
    const Samples unit(200, INT16_MIN);
    for (const int rate : {8000, 16000}) {
        Stream stream(rate);
        stream.b.erase_count = 1;
        Samples s = zero;
        PLC_OlaEnd(&stream.block, s.data(), unit.data(), 30);
        EXPECT_EQ((std::array{s[0], s[1], s[29], s[30]}),
                  (std::array<std::int16_t, 4>{-31674, -30583, -35, 0}));
        s = unit;
        PLC_OlaEnd(&stream.block, s.data(), unit.data(), 30);
        EXPECT_EQ(s[29], INT16_MIN); // both weights add up to 32795
        s = zero;
        PLC_OverlapAdds(&stream.block, zero.data(), unit.data(), s.data(), 200);
        EXPECT_EQ(std::count(s.begin(), s.end(), 0), 200 - stream.b.frame_len);
    }
    Samples s = unit;
    PLC_Ola(s.data(), zero.data(), s.data(), 4);
    EXPECT_EQ(Samples(s.begin(), s.begin() + 5), (Samples{-24576, -16385, -8194, -3, INT16_MIN}));
    s = unit;
    PLC_Ola(zero.data(), s.data(), s.data(), 1);
    EXPECT_EQ(Samples(s.begin(), s.begin() + 2), (Samples{-32767, INT16_MIN}));
}

TEST(Primitives, NarrowbandPitch) {
    const struct {
        std::vector<std::pair<int, int>> samples; // so many before the end, so high
        int pitch;
    } kCases[] = {{{}, 30}, // a tie of all
                  {{{10, 10000}, {127, 2000}, {126, 1000}, {125, 3000}}, 117},
                  {{{10, 10000}, {126, 1000}, {125, 3000}}, 115},
                  {{{10, 10000}, {130, 10000}}, 120},
                  {{{10, 10000}, {130, 10000}, {129, 20000}}, 119},
                  {{{10, 10000}, {41, 10000}}, 31}};
    for (const auto &c : kCases) {
        Stream stream(8000);
        for (const auto &[before, value] : c.samples) stream.b.pitch_buf_end[-before] = sample(value);
        EXPECT_EQ(PLC_FindPitch_fix(&stream.block), c.pitch);
    }
}

} // namespace
