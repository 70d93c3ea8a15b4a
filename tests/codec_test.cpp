// The codec against its definition, written out sample by sample with divisions and branches.
#include "tests/support.h"

#include <climits>

namespace {

struct Reference {
    int accumulator, step, run;

    int leaked() const {
        return accumulator >= 0 ? accumulator - accumulator / 32 - (accumulator % 32 != 0)
                                : accumulator + -accumulator / 32;
    }
    void take(bool down) {
        const int from = leaked();
        run = (down ? 8 : 0) + run / 2;
        step += run == 0 || run == 15 ? 10240 : -(step / 1024) - (step % 1024 != 0);
        step = std::clamp(step, 10240, 1310720);
        accumulator = std::clamp(down ? from - step / 16 : from + step / 16, -2097151, 2097151);
    }
    bool operator==(const CvsdState &s) const {
        return accumulator == s.accumulator && step == s.step && run == s.run_bits;
    }
};

std::vector<std::uint8_t> encode(CvsdState &state, const Samples &pcm) {
    std::vector<std::uint8_t> bits(pcm.size() / 8);
    auto samples = static_cast<std::int32_t>(pcm.size());
    auto bytes = static_cast<std::int32_t>(bits.size());
    CVSD_ENC_Process(&state, pcm.data(), &samples, bits.data(), &bytes);
    return bits;
}

Samples decode(CvsdState &state, const std::vector<std::uint8_t> &bits) {
    Samples pcm(8 * bits.size());
    auto bytes = static_cast<std::int32_t>(bits.size());
    auto samples = static_cast<std::int32_t>(pcm.size());
    CVSD_DEC_Process(&state, bits.data(), &bytes, pcm.data(), &samples);
    return pcm;
}

CvsdState started() {
    CvsdState state{1, 2, 3};
    CVSD_DEC_Init(&state);
    return state;
}

TEST(Codec, WorkedFigures) {
    EXPECT_EQ(CVSD_ENC_GetBufferSize(), 12);
    EXPECT_EQ(CVSD_DEC_GetBufferSize(), 12);
    CvsdState state{1, 2, 3};
    CVSD_ENC_Init(&state);
    EXPECT_EQ(encode(state, Samples(16)), (std::vector<std::uint8_t>{0xAA, 0xAA}));
    EXPECT_TRUE((Reference{-136, 10240, 10} == state));
    state = started();
    EXPECT_EQ(decode(state, {0xFF, 0xFF}), (Samples{0, -9, -19, -37, -65, -102, -147, -201, -262, -332, -408,
                                                    -492, -584, -682, -786, -897}));
    EXPECT_TRUE((Reference{-67060, 153600, 15} == state));
    state = started();
    EXPECT_EQ(decode(state, {0, 0}),
              (Samples{0, 9, 19, 28, 46, 74, 110, 155, 208, 270, 339, 415, 499, 590, 688, 792}));
}

// A byte from every accumulator there is, and in passing every step, with input close to the signal,
// where the encoder's decision is finest. The encoder's record equals that of a decoder fed its bits.
TEST(Codec, EveryAccumulatorAndEveryStep) {
    std::uint32_t noise = 1;
    for (int i = 0; i <= 2 * 2097151; i += stride(31)) {
        const Reference start{i - 2097151, 10240 + i % 1300481, i % 16};
        CvsdState encoder{start.accumulator, start.step, start.run};
        CvsdState decoder = encoder;
        Samples pcm(8);
        Reference expected = start;
        std::uint8_t byte = 0;
        Samples decoded;
        for (int k = 0; k < 8; ++k) {
            noise = noise * 1664525 + 1013904223;
            auto &s = pcm[static_cast<std::size_t>(k)];
            s = sample(expected.leaked() / 64 + static_cast<int>(noise >> 29) - 4);
            decoded.push_back(static_cast<std::int16_t>(expected.leaked() / 64));
            const bool down = s * 64 < expected.leaked();
            byte = static_cast<std::uint8_t>(byte | down << k);
            expected.take(down);
        }
        const auto bits = encode(encoder, pcm);
        ASSERT_EQ(bits[0], byte) << "from accumulator " << start.accumulator << ", step " << start.step;
        ASSERT_EQ(decode(decoder, bits), decoded) << "from accumulator " << start.accumulator;
        ASSERT_TRUE(expected == encoder && expected == decoder) << "from accumulator " << start.accumulator;
    }
}

TEST(Codec, LimitsOfLongRuns) {
    for (const bool down : {false, true}) {
        CvsdState state = started();
        const Samples pcm = decode(state, std::vector<std::uint8_t>(100, down ? 0xFF : 0));
        EXPECT_EQ(pcm.back(), down ? -31744 : 31743);
        EXPECT_TRUE((Reference{down ? -2097151 : 2097151, 1310720, down ? 15 : 0} == state));
    }
}

TEST(Codec, AnySplitIntoCallsIsTheSameStream) {
    Random random(1);
    const Samples pcm = hostile(random, 8000);
    CvsdState whole = started();
    const auto bits = encode(whole, pcm);
    CvsdState encoder = started();
    CvsdState decoder = started();
    std::vector<std::uint8_t> pieces;
    Samples decoded;
    for (std::size_t at = 0; at < bits.size(); at = pieces.size()) {
        const std::size_t end = std::min(at + static_cast<std::size_t>(random.in(1, 9)), bits.size());
        const auto piece = encode(encoder, Samples(&pcm[8 * at], &pcm[8 * at] + 8 * (end - at)));
        const Samples samples = decode(decoder, piece);
        pieces.insert(pieces.end(), piece.begin(), piece.end());
        decoded.insert(decoded.end(), samples.begin(), samples.end());
    }
    CvsdState again = started();
    EXPECT_EQ(pieces, bits);
    EXPECT_EQ(decoded, decode(again, bits));
}

TEST(Codec, LengthsInAndOut) {
    constexpr struct {
        std::int32_t bytes, samples, handled;
    } kCases[] = {{3, 20, 2},       {10, 20, 2},           {3, 100, 3},
                  {3, 24, 3},       {0, 100, 0},           {5, 0, 0},
                  {5, 7, 0},        {-1, 100, 0},          {100, -8, 0},
                  {100, -1, 0},     {INT_MIN, INT_MIN, 0}, {INT_MIN, INT_MAX, 0},
                  {1 << 28, 16, 2}, {INT_MAX, 31, 3},      {2, INT_MAX, 2}};
    for (const auto &c : kCases) {
        SCOPED_TRACE(testing::Message() << c.bytes << " bytes, " << c.samples << " samples");
        const CvsdState start{12345, 20480, 5};
        std::uint8_t bits[4] = {9, 9, 9, 9};
        std::int16_t pcm[32];
        std::fill_n(pcm, 32, std::int16_t{999});
        CvsdState state = start;
        std::int32_t bytes = c.bytes;
        std::int32_t samples = c.samples;
        CVSD_DEC_Process(&state, bits, &bytes, pcm, &samples);
        EXPECT_EQ(bytes, c.bytes - c.handled);
        EXPECT_EQ(samples, 8 * c.handled);
        EXPECT_TRUE(std::all_of(pcm + 8 * c.handled, pcm + 32, [](int v) { return v == 999; }));
        EXPECT_EQ((Reference{12345, 20480, 5} == state), c.handled == 0);
        state = start;
        bytes = c.bytes;
        samples = c.samples;
        CVSD_ENC_Process(&state, pcm, &samples, bits, &bytes);
        EXPECT_EQ(samples, c.samples - 8 * c.handled);
        EXPECT_EQ(bytes, c.handled);
        EXPECT_TRUE(std::all_of(bits + c.handled, bits + 4, [](int v) { return v == 9; }));
        EXPECT_EQ((Reference{12345, 20480, 5} == state), c.handled == 0);
    }
}

} // namespace
