// Concealment: whole streams, construction, and what only calls of the primitives show.
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
            for (const std::int16_t v : stream.frame(&in[at], false)) {
                EXPECT_EQ(v, at < delay ? 0 : in[at - delay]);
                ++at;
            }
    }
}

// A sine with a burst of lost frames. The concealed frames continue it, faded by the burst. The join has its
// length and no step: `steepest` is the largest difference of neighbours in the sine, 10000 · 2π / period =
// 1257 or 785, and a margin for the join.
TEST(Stream, BurstsFadeAndJoin) {
    constexpr struct {
        int rate, period, ola_len, reconverge, steepest; // ola_len: a quarter period
    } kKinds[] = {{8000, 50, 12, 0, 1300}, {16000, 80, 20, 36, 1000}};
    for (const auto &kind : kKinds) {
        for (const int burst : {1, 2, 3, 5, 6, 7, 40}) {
            SCOPED_TRACE(testing::Message() << kind.rate << " Hz, burst of " << burst);
            Stream stream(kind.rate);
            const Block &b = stream.b;
            const std::int16_t *newest = b.history + b.history_len - b.frame_len;
            const Samples s = sine(100 * b.frame_len, kind.period);
            const std::int16_t *at = s.data();
            for (int good = 0; good < 40; ++good, at += b.frame_len) stream.frame(at, false);
            for (int lost = 0; lost < burst; ++lost, at += b.frame_len) {
                if (lost == 38) stream.b.erase_count = INT32_MAX - 1; // as after an endless outage
                EXPECT_EQ(b.erase_count, lost < 38 ? lost : INT32_MAX - (lost == 38));
                stream.frame(at, true);
                for (int i = 0; i < b.frame_len; ++i) {
                    const double fade = lost == 0 ? 0 : 0.25 * (lost - 1 + 1.0 * i / b.frame_len);
                    ASSERT_NEAR(newest[i], std::max(1 - fade, 0.0) * at[i], lost < 5 ? 30 : 0);
                }
            }
            EXPECT_GE(b.erase_count, burst);
            stream.frame(at, false);
            EXPECT_EQ(b.erase_count, 0);
            int end = b.frame_len;
            while (end > 0 && newest[end - 1] == at[end - 1]) --end;
            const int expected =
                std::min<int>(kind.reconverge + kind.ola_len + 32 * (burst - 1), b.frame_len);
            EXPECT_TRUE(end == expected || end == expected - 1) << end; // the last weight is almost 1
            for (int i = 0; i < b.frame_len; ++i) {
                EXPECT_LE(std::abs(newest[i] - newest[i - 1]), kind.steepest) << i;
                EXPECT_TRUE(burst < 6 || i >= kind.reconverge || newest[i] == 0) << i;
            }
        }
    }
}

TEST(Stream, LossBeforeAnyGoodFrameIsSilence) {
    for (const int rate : {8000, 16000}) {
        Stream stream(rate);
        for (int i = 0; i < 10; ++i)
            for (const auto v : stream.frame(Samples(120, 12345).data(), true)) EXPECT_EQ(v, 0);
        EXPECT_EQ(stream.b.pitch, rate == 8000 ? 30 : 40);
        EXPECT_EQ(stream.b.ola_len, rate == 8000 ? 7 : 10);
    }
}

// --- Construction ---------------------------------------------------------------------------------------

bool all(const void *from, std::size_t n, unsigned char value) {
    const auto *bytes = static_cast<const unsigned char *>(from);
    return std::all_of(bytes, bytes + n, [=](unsigned char v) { return v == value; });
}

// Construction in a used block gives the same bytes as in a new one. No call writes beside the block.
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

// Worked out by hand for n = 30. The received weight rises by 32767 / 30 = 1092 a sample, from 1092 to 32760.
// The synthetic one is rounded down apart from it and falls by 1091, from 31674 to 35: together up to 32795.
TEST(Primitives, JoinIsClamped) {
    Stream stream(8000);
    stream.b.erase_count = 1;
    const Samples unit(30, INT16_MIN); // shows a weight's negative
    Samples s(30);
    PLC_OlaEnd(&stream.block, s.data(), unit.data(), 30);
    EXPECT_EQ((std::array{s[0], s[1], s[29]}), (std::array<std::int16_t, 3>{-31674, -30583, -35}));
    s = unit;
    PLC_OlaEnd(&stream.block, s.data(), unit.data(), 30);
    EXPECT_EQ((std::array{s[0], s[1], s[29]}), (std::array<std::int16_t, 3>{-32766, -32767, INT16_MIN}));
}

TEST(Primitives, CopyOfOneByte) {
    const unsigned char from = 7;
    unsigned char to = 0;
    plc_mem_copy(&to, &from, 1);
    EXPECT_EQ(to, from);
}

TEST(Primitives, NarrowbandPitch) {
    const struct {
        std::vector<std::pair<int, int>> samples; // distance from the end, height
        int pitch;
    } kCases[] = {
        {{}, 30}, // a tie of all lags: the shortest
        // The even lags are tried first: 116 is best. Then of 117 and 115, both better, the longer is taken.
        {{{10, 10000}, {127, 2000}, {126, 1000}, {125, 3000}}, 117},
        {{{10, 10000}, {126, 1000}, {125, 3000}}, 115},
        // At the ends of the range, 30..120, the lag outside does not count and the one inside does.
        {{{10, 10000}, {130, 10000}}, 120},
        {{{10, 10000}, {130, 10000}, {129, 20000}}, 119},
        {{{10, 10000}, {41, 10000}}, 31},
    };
    for (const auto &c : kCases) {
        Stream stream(8000);
        for (const auto &[before, value] : c.samples) stream.b.pitch_buf_end[-before] = sample(value);
        EXPECT_EQ(PLC_FindPitch_fix(&stream.block), c.pitch);
    }
}

} // namespace
