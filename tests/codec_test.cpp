// The codec against its definition, written with divisions and branches.
#include "tests/support.h"

namespace {

std::int32_t leaked(std::int32_t a) { return a >= 0 ? a - a / 32 - (a % 32 != 0) : a + -a / 32; }

void take(CvsdState &s, bool down) {
    const std::int32_t from = leaked(s.accumulator);
    s.run_bits = (down ? 8 : 0) + s.run_bits / 2;
    s.step += s.run_bits == 0 || s.run_bits == 15 ? 10240 : -(s.step / 1024) - (s.step % 1024 != 0);
    s.step = std::clamp<std::int32_t>(s.step, 10240, 1310720);
    s.accumulator =
        std::clamp<std::int32_t>(down ? from - s.step / 16 : from + s.step / 16, -2097151, 2097151);
}

using Values = std::array<std::int32_t, 3>;
Values values(const CvsdState &s) { return {s.accumulator, s.step, s.run_bits}; }

// Worked out by hand from take(). Silence alternates the bits of a step of 10240 / 16 = 640, and the leak
// leaves -136 after 16 of them. The first byte of zeros or of ones differs by more than its sign, because
// run_bits starts as 1010: ones make a run of four one bit earlier, at the third. A long run ends at the
// limits: 2097151 / 64 less the leak of 1/32.
TEST(Codec, WorkedFigures) {
    EXPECT_EQ(CVSD_ENC_GetBufferSize(), 12);
    EXPECT_EQ(CVSD_DEC_GetBufferSize(), 12);
    CvsdState state{1, 2, 3};
    CVSD_ENC_Init(&state);
    EXPECT_EQ(values(state), (Values{0, 0, 10}));
    EXPECT_EQ(encode(state, Samples(16)), (Bytes{0xAA, 0xAA}));
    EXPECT_EQ(values(state), (Values{-136, 10240, 10}));
    for (const bool down : {false, true}) {
        CVSD_DEC_Init(&state);
        EXPECT_EQ(values(state), (Values{0, 0, 10}));
        const Bytes run(100, down ? 0xFF : 0);
        EXPECT_EQ(decode(state, {run[0]}).back(), down ? -201 : 155);
        EXPECT_EQ(decode(state, run).back(), down ? -31744 : 31743);
        EXPECT_EQ(values(state), (Values{down ? -2097151 : 2097151, 1310720, down ? 15 : 0}));
    }
}

// One byte from every value of the accumulator (every 29th without EXHAUSTIVE). The steps cover their range
// of 1300481 values; every second byte begins at one of the 100 smallest. The input is within 4 of the
// encoder's threshold. Encoder and decoder agree with take() in output and record.
TEST(Codec, EveryAccumulatorAndEveryStep) {
    std::uint32_t noise = 1;
    for (int i = 0; i <= 2 * 2097151; i += stride(29)) {
        const CvsdState start{i - 2097151, 10240 + i % (i % 2 == 0 ? 1300481 : 100), i % 16};
        CvsdState expected = start;
        CvsdState encoder = start;
        CvsdState decoder = start;
        Samples pcm;
        Samples decoded;
        Bytes bits(1);
        for (int k = 0; k < 8; ++k) {
            noise = noise * 1664525 + 1013904223;
            pcm.push_back(sample(leaked(expected.accumulator) / 64 + static_cast<int>(noise >> 29) - 4));
            decoded.push_back(static_cast<std::int16_t>(leaked(expected.accumulator) / 64));
            const bool down = pcm.back() * 64 < leaked(expected.accumulator);
            bits[0] = static_cast<std::uint8_t>(bits[0] | down << k);
            take(expected, down);
        }
        const bool right = encode(encoder, pcm) == bits && decode(decoder, bits) == decoded;
        if (!right || values(encoder) != values(expected) || values(decoder) != values(expected))
            FAIL() << testing::PrintToString(values(start));
    }
}

// A record outside its ranges is limited to them first: `expected` is the limited one.
TEST(Codec, RecordsOutsideTheirRangesAreBroughtIntoThem) {
    struct {
        CvsdState state, expected;
    } pairs[] = {{{INT32_MIN, INT32_MIN, -1}, {-2097151, 0, 15}},
                 {{INT32_MAX, INT32_MAX, 16}, {2097151, 1310720, 0}}};
    for (auto &[state, expected] : pairs) {
        decode(state, {0xFF});
        for (int k = 0; k < 8; ++k) take(expected, true);
        EXPECT_EQ(values(state), values(expected));
    }
}

TEST(Codec, LengthsInAndOut) {
    constexpr std::int32_t kMin = INT32_MIN;
    constexpr std::int32_t kMax = INT32_MAX;
    // Bytes, samples, and the bytes that both lengths allow, none for a negative one.
    constexpr Values kCases[] = {{3, 20, 2},       {10, 20, 2},   {3, 100, 3},     {3, 24, 3},
                                 {0, 100, 0},      {5, 0, 0},     {5, 7, 0},       {-1, 100, 0},
                                 {100, -8, 0},     {100, -1, 0},  {kMin, kMin, 0}, {kMin, kMax, 0},
                                 {1 << 28, 16, 2}, {kMax, 31, 3}, {2, kMax, 2}};
    for (const auto &[all_bytes, all_samples, handled] : kCases) {
        SCOPED_TRACE(testing::Message() << all_bytes << " bytes, " << all_samples << " samples");
        Bytes bits(4, 9);
        Samples pcm(32, 999);
        CvsdState state{12345, 20480, 5};
        std::int32_t bytes = all_bytes;
        std::int32_t samples = all_samples;
        CVSD_DEC_Process(&state, bits.data(), &bytes, pcm.data(), &samples);
        EXPECT_EQ(std::pair(bytes, samples), std::pair(all_bytes - handled, 8 * handled));
        EXPECT_TRUE(std::all_of(pcm.begin() + 8 * handled, pcm.end(), [](int v) { return v == 999; }));
        bytes = all_bytes;
        samples = all_samples;
        CVSD_ENC_Process(&state, pcm.data(), &samples, bits.data(), &bytes);
        EXPECT_EQ(std::pair(bytes, samples), std::pair(handled, all_samples - 8 * handled));
        EXPECT_TRUE(std::all_of(bits.begin() + handled, bits.end(), [](int v) { return v == 9; }));
        EXPECT_EQ(values(state) == (Values{12345, 20480, 5}), handled == 0);
    }
}

} // namespace
