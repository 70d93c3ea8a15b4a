// Digests of everything that each service puts out, over speech and over hostile inputs. They were taken when
// the outputs were known to be right; a row that differs names the service whose arithmetic has changed.
#include "tests/support.h"

#include <thread>

namespace {

// --- Codec ----------------------------------------------------------------------------------------------

// Where the stream is cut into calls must not show.
void codec(Digest &digest, Random &random, const Samples &pcm, CvsdState encoder) {
    CvsdState decoder = encoder;
    Digest sent;
    Digest received;
    for (std::size_t at = 0, n = 0; at < pcm.size(); at += n) {
        n = std::min(static_cast<std::size_t>(8 * random.in(0, 90)), pcm.size() - at);
        const Bytes bits = encode(encoder, Samples(&pcm[at], &pcm[at] + n));
        sent << bits;
        received << decode(decoder, bits);
    }
    digest << sent.value << received.value;
    for (const CvsdState &s : {encoder, decoder}) digest << s.accumulator << s.step << s.run_bits;
}

template <int Cut>
void codec_speech(Digest &digest) {
    Random random(Cut);
    const Samples voice = speech(8000);
    Samples pcm;
    for (std::size_t i = 1; i < 50000; ++i)
        for (int k = 0; k < 8; ++k) pcm.push_back(sample((voice[i] * k + voice[i - 1] * (8 - k)) / 8));
    codec(digest, random, pcm, {0, 0, 10});
}

void codec_hostile(Digest &digest) {
    Random random(1);
    for (int run = 0; run < 300; ++run) {
        const CvsdState start = {random.in(-2097151, 2097151), random.in(10240, 1310720), random.in(0, 15)};
        codec(digest, random, hostile(random, 1600), start);
    }
}

// --- Pitch tracker --------------------------------------------------------------------------------------

void decimation(Digest &digest) {
    Random random(2);
    for (int run = 0; run < 300; ++run) {
        Stream stream(16000);
        PitchTrackerState &t = stream.b.tracker;
        if (run % 3 == 0) {
            t.decim_exp = sample(random.in(-6, 37));
            for (auto &v : t.decim_hist) v = random.any();
        }
        const Samples s = hostile(random, 12 * 120);
        for (int frame = 0; frame < 12; ++frame) {
            std::int16_t in[180];
            std::int16_t out[71];
            std::copy_n(s.data() + 120 * frame, 120, in + 60);
            PLC_Decim(in, out, &t);
            digest << in << out << t;
        }
    }
}

int any_previous_pitch(Random &random) {
    return random.in(0, 3) == 0 ? random.in(-25000, INT16_MAX) : random.in(30, 330);
}

void coarse_pitch(Digest &digest) {
    Random random(3);
    for (int run = 0; run < 30000; ++run) {
        const Samples decimated = hostile(random, 71);
        for (int k = 0; k < 2; ++k) digest << coarse(decimated, any_previous_pitch(random));
    }
}

// Mixtures of two decimated signals, exactly where the choice changes from one pitch to another: a threshold
// that is off by one moves these points.
void coarse_pitch_edges(Digest &digest) {
    Random random(4);
    for (int run = 0; run < 6000; ++run) {
        const int prev = any_previous_pitch(random);
        const int period = random.in(4, 13);
        Samples ends[2];
        for (Samples &end : ends) {
            std::vector<int> heights(15);
            for (int &h : heights) h = random.in(-8000, 32000);
            end = run % 3 == 0 ? hostile(random, 71) : pulses(71, period, run % period, heights);
        }
        const auto mixed = [&](int gain) {
            Samples s;
            for (std::size_t i = 0; i < 71; ++i)
                s.push_back(sample((ends[0][i] * (32768 - gain) + ends[1][i] * gain) >> 16));
            return coarse(s, prev);
        };
        int low = 0;
        int high = 32768;
        while (high - low > 1) {
            const int middle = (low + high) / 2;
            (mixed(middle) == mixed(low) ? low : high) = middle;
        }
        digest << low << mixed(low) << mixed(high);
    }
}

void refinement(Digest &digest) {
    Random random(5);
    for (int run = 0; run < 6000; ++run) {
        const Samples s = hostile(random, 561);
        for (const int least : {0, 36, 36}) digest << refine(s, random.in(least, least == 0 ? 430 : 324));
    }
}

void track(Digest &digest, const Samples &s) {
    Stream stream(16000);
    PitchTrackerState &t = stream.b.tracker;
    for (std::size_t at = 0; at + 120 <= s.size(); at += 120) digest << PLC_PitchTracker(&t, &s[at]) << t;
}

void tracker_speech(Digest &digest) { track(digest, speech(16000)); }

void tracker_hostile(Digest &digest) {
    Random random(6);
    for (int run = 0; run < 300; ++run) track(digest, hostile(random, 20 * 120));
}

// --- Concealment ----------------------------------------------------------------------------------------

// Frames are lost with a probability in percent, after a lost one with another. A stream at the other rate
// runs between them and must not show.
void conceal(Digest &digest, Random &random, int rate, const Samples &s, int begin, int stay) {
    Stream stream(rate);
    Stream other(24000 - rate);
    bool lost = false;
    const auto frame_len = static_cast<std::size_t>(stream.b.frame_len);
    for (std::size_t at = 0; at + frame_len <= s.size(); at += frame_len) {
        lost = random.in(0, 99) < (lost ? stay : begin);
        digest << stream.frame(s, at, lost) << stream.b;
        other.frame(s, at % 480, at % 11 == 0);
    }
}

template <int Rate, int Begin, int Stay>
void stream_speech(Digest &digest) {
    Random random(7);
    conceal(digest, random, Rate, speech(Rate), Begin, Stay);
}

template <int Rate>
void stream_hostile(Digest &digest) {
    Random random(8);
    for (int run = 0; run < 150; ++run) {
        const Samples s = hostile(random, Rate == 8000 ? 900 : 3600);
        const int begin = random.in(1, 60);
        conceal(digest, random, Rate, s, begin, random.in(0, 95));
    }
}

// The primitives, with arguments too that the entry points never give them.
void primitives(Digest &digest) {
    Random random(9);
    for (int run = 0; run < 4000; ++run) {
        Stream stream(run % 2 == 0 ? 16000 : 8000);
        cvsd_qor::Block &b = stream.b;
        PlcBlock *block = &stream.block;
        std::copy_n(hostile(random, b.history_len).data(), b.history_len, b.pitch_buf);
        b.erase_count = random.in(1, 8);
        b.syn_len = random.in(1, b.history_len);
        b.syn_pos = random.in(0, b.syn_len);
        b.syn_start = b.pitch_buf_end - b.syn_len;
        const int n = random.in(-2, 150);
        const int from = random.in(0, 140);
        const Samples right = hostile(random, 300);
        Samples out[8];
        std::fill(std::begin(out), std::end(out), hostile(random, 300));
        PLC_GetSynSpeech(block, out[0].data(), n);
        PLC_ScaleSpeech(block, out[1].data());
        PLC_ScaleSpeech_Reconverge(block, out[2].data(), n);
        PLC_Ola(out[3].data(), right.data(), out[3].data(), n);
        PLC_OverlapAdds(block, right.data(), out[4].data(), out[4].data(), n);
        PLC_OlaEnd(block, out[5].data(), right.data(), n);
        PLC_SaveSpeech(block, out[6].data());
        plc_mem_copy(&out[7][70], &out[7].at(static_cast<std::size_t>(from)), n);
        digest << out << b << PLC_FindPitch_fix(block);
    }
}

struct Row {
    const char *name;
    void (*run)(Digest &);
    std::uint64_t expected;
};

void PrintTo(const Row &row, std::ostream *out) { *out << row.name; }

constexpr Row kRows[] = {
    {"CodecSpeech", codec_speech<1>, 0x16078044ccb20228},
    {"CodecSpeechCutElsewhere", codec_speech<2>, 0x16078044ccb20228},
    {"CodecHostile", codec_hostile, 0x7b66e1ec40bdd63a},
    {"Decimation", decimation, 0x2eecb5125b558aa0},
    {"CoarsePitch", coarse_pitch, 0xd0bc0dc907cf73ba},
    {"CoarsePitchEdges", coarse_pitch_edges, 0xd3a1a73cdfa70fbb},
    {"Refinement", refinement, 0x3a5cc1fa0c6549b3},
    {"TrackerSpeech", tracker_speech, 0x05dc2cc704e97d32},
    {"TrackerHostile", tracker_hostile, 0xb0e3f4c7b5664f4f},
    {"Stream8kRareLosses", stream_speech<8000, 2, 0>, 0x8071b55317ef58e0},
    {"Stream8kBursts", stream_speech<8000, 6, 60>, 0xfd3a2f89f5687479},
    {"Stream8kOutages", stream_speech<8000, 10, 92>, 0x5666e1e969eb99c7},
    {"Stream8kHostile", stream_hostile<8000>, 0x3ce7da2ea4393cf7},
    {"Stream16kRareLosses", stream_speech<16000, 2, 0>, 0x7cbc386f5942829d},
    {"Stream16kBursts", stream_speech<16000, 6, 60>, 0x93f1c33b2a091c12},
    {"Stream16kOutages", stream_speech<16000, 10, 92>, 0xeb9e68e72034a65e},
    {"Stream16kHostile", stream_hostile<16000>, 0x7b3f6b5cd52a2f29},
    {"Primitives", primitives, 0x7127de4a2005f80b},
};

class Digests : public testing::TestWithParam<Row> {};

TEST_P(Digests, AreUnchanged) {
    Digest digest;
    GetParam().run(digest);
    EXPECT_EQ(digest.value, GetParam().expected) << std::hex << "0x" << digest.value;
}

// The cheap ones again, at once, each on a thread of its own.
TEST(Threads, GiveTheSameDigests) {
    std::vector<std::thread> threads;
    for (const Row &row : kRows)
        if (row.name[0] == 'S' || row.name[0] == 'T')
            threads.emplace_back([&row] {
                Digest digest;
                row.run(digest);
                EXPECT_EQ(digest.value, row.expected) << row.name;
            });
    for (std::thread &thread : threads) thread.join();
}

INSTANTIATE_TEST_SUITE_P(All, Digests, testing::ValuesIn(kRows),
                         [](const auto &row) { return row.param.name; });

} // namespace
