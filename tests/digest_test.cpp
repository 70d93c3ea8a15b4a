// Digests of everything that each service puts out, over speech and over hostile inputs. They were taken when
// the outputs were known to be right; a row that differs names the service whose arithmetic has changed.
#include "tests/support.h"

namespace {

struct Row {
    const char *name;
    void (*run)(Digest &);
    std::uint64_t expected;
};

void PrintTo(const Row &row, std::ostream *out) { *out << row.name; }

// --- Codec ----------------------------------------------------------------------------------------------

// Encodes and decodes in calls of odd lengths, from any record.
void codec(Digest &digest, Random &random, const Samples &pcm, CvsdState encoder) {
    CvsdState decoder = encoder;
    const auto total = static_cast<std::int32_t>(pcm.size());
    std::int32_t at = 0;
    while (at + 8 <= total) {
        std::uint8_t bits[80] = {};
        std::int16_t out[640] = {};
        std::int32_t samples = std::min(total - at, random.in(0, 700));
        std::int32_t bytes = random.in(0, 80);
        at += samples;
        CVSD_ENC_Process(&encoder, pcm.data() + at - samples, &samples, bits, &bytes);
        at -= samples;
        digest.add(samples);
        digest.add(bytes);
        digest.add(bits, std::size(bits));
        std::int32_t written = 640;
        CVSD_DEC_Process(&decoder, bits, &bytes, out, &written);
        digest.add(bytes);
        digest.add(out, std::size(out));
        digest.add(encoder);
        digest.add(decoder);
    }
}

void codec_speech(Digest &digest) {
    Random random(1);
    const Samples voice = speech(8000);
    Samples pcm;
    for (std::size_t i = 0; i + 1 < voice.size() && pcm.size() < 400000; ++i)
        for (int k = 0; k < 8; ++k) pcm.push_back(sample(voice[i] + (voice[i + 1] - voice[i]) * k / 8));
    codec(digest, random, pcm, {0, 0, 10});
}

void codec_hostile(Digest &digest) {
    Random random(2);
    for (int run = 0; run < 300; ++run) {
        const CvsdState start = {random.in(-2097151, 2097151), random.in(10240, 1310720), random.in(0, 15)};
        codec(digest, random, hostile(random, 1500), start);
    }
}

// --- Pitch tracker --------------------------------------------------------------------------------------

void decimation(Digest &digest) {
    Random random(3);
    for (int run = 0; run < 300; ++run) {
        Tracker t;
        if (run % 3 == 0) {
            t.state.decim_exp = static_cast<std::int16_t>(random.in(-6, 37));
            std::copy_n(hostile(random, 56).data(), 56, t.state.decim_hist);
        }
        const Samples s = hostile(random, 12 * 120);
        for (int frame = 0; frame < 12; ++frame) {
            std::int16_t in[180];
            std::int16_t out[71];
            std::copy_n(s.data() + 120 * frame, 120, in + 60);
            PLC_Decim(in, out, &t.state);
            digest.add(in, std::size(in));
            digest.add(out, std::size(out));
            digest.add(t.state);
        }
    }
}

int any_previous_pitch(Random &random) {
    return random.in(0, 3) == 0 ? random.in(-25000, INT16_MAX) : random.in(30, 330);
}

void coarse_pitch(Digest &digest) {
    Random random(4);
    for (int run = 0; run < 30000; ++run) {
        const Samples decimated = hostile(random, 71);
        for (int k = 0; k < 2; ++k) digest.add(coarse(decimated, any_previous_pitch(random)));
    }
}

// Decimated signals between two patterns, exactly where the choice changes from one pitch to another: a
// threshold that is off by one moves these points.
void coarse_pitch_edges(Digest &digest) {
    Random random(5);
    for (int run = 0; run < 6000; ++run) {
        const int prev = any_previous_pitch(random);
        std::array<Samples, 2> ends = {hostile(random, 71), hostile(random, 71)};
        if (run % 2 == 0) { // a pattern that repeats, with every other repetition fainter
            const int period = random.in(5, 20);
            for (std::size_t e = 0; e < 2; ++e)
                for (int i = 0; i < 71; ++i)
                    ends[e][static_cast<std::size_t>(i)] =
                        i < period ? sample(random.in(-30000, 30000))
                                   : ends[e][static_cast<std::size_t>(i - period)];
        }
        const auto mix = [&](int gain) {
            Samples s(71);
            for (std::size_t i = 0; i < 71; ++i)
                s[i] = sample((std::int64_t{ends[0][i]} * (32768 - gain) + std::int64_t{ends[1][i]} * gain) >>
                              15);
            return coarse(s, prev);
        };
        int low = 0;
        int high = 32768;
        while (high - low > 1) {
            const int middle = (low + high) / 2;
            (mix(middle) == mix(low) ? low : high) = middle;
        }
        digest.add(low);
        digest.add(mix(low));
        digest.add(mix(high));
    }
}

void refinement(Digest &digest) {
    Random random(6);
    for (int run = 0; run < 6000; ++run) {
        const Samples s = hostile(random, 561);
        for (int k = 0; k < 3; ++k) {
            const int pitch = k == 0 ? random.in(0, 430) : random.in(36, 324);
            digest.add(refine(s, pitch).data(), 7);
        }
    }
}

void track(Digest &digest, const Samples &s) {
    Tracker t;
    for (std::size_t at = 0; at + 120 <= s.size(); at += 120) {
        digest.add(PLC_PitchTracker(&t.state, s.data() + at));
        digest.add(t.state);
    }
}

void tracker_speech(Digest &digest) { track(digest, speech(16000)); }

void tracker_hostile(Digest &digest) {
    Random random(7);
    for (int run = 0; run < 300; ++run) track(digest, hostile(random, 20 * 120));
}

// --- Concealment ----------------------------------------------------------------------------------------

// Frames are lost with the given probability in percent, and after a lost one with the other.
void conceal(Digest &digest, Random &random, int rate, const Samples &s, int begin, int stay) {
    Stream stream(rate);
    const auto frame_len = static_cast<std::size_t>(stream.b.frame_len);
    bool lost = false;
    for (std::size_t at = 0; at + frame_len <= s.size(); at += frame_len) {
        lost = random.in(0, 99) < (lost ? stay : begin);
        digest.add(stream.frame(s, at, lost).data(), frame_len);
        digest.add(stream.block);
    }
}

template <int Rate, int Begin, int Stay>
void stream_speech(Digest &digest) {
    Random random(8);
    conceal(digest, random, Rate, speech(Rate), Begin, Stay);
}

template <int Rate>
void stream_hostile(Digest &digest) {
    Random random(9);
    for (int run = 0; run < 150; ++run) {
        const Samples s = hostile(random, Rate == 8000 ? 900 : 3600);
        const int begin = random.in(1, 60);
        conceal(digest, random, Rate, s, begin, random.in(0, 95));
    }
}

void narrowband_pitch(Digest &digest) {
    Random random(10);
    for (int run = 0; run < 6000; ++run) {
        Stream stream(run % 4 == 0 ? 16000 : 8000);
        const Samples s = hostile(random, stream.b.history_len);
        std::copy(s.begin(), s.end(), stream.b.pitch_buf);
        digest.add(PLC_FindPitch_fix(&stream.block));
    }
}

// The primitives with arguments that the two entry points never give them.
void primitives(Digest &digest) {
    Random random(11);
    for (int run = 0; run < 3000; ++run) {
        Stream stream(run % 2 == 0 ? 16000 : 8000);
        cvsd_qor::Block &b = stream.b;
        std::copy_n(hostile(random, b.history_len).data(), b.history_len, b.pitch_buf);
        b.erase_count = random.in(1, 8);
        b.syn_len = random.in(1, b.history_len);
        b.syn_pos = random.in(0, b.syn_len);
        b.syn_start = b.pitch_buf_end - b.syn_len;
        const int n = random.in(0, 150);
        const Samples left = hostile(random, 150);
        const Samples right = hostile(random, 150);
        Samples out[6];
        std::fill(std::begin(out), std::end(out), left);
        PLC_GetSynSpeech(&stream.block, out[0].data(), n);
        PLC_ScaleSpeech(&stream.block, out[1].data());
        PLC_ScaleSpeech_Reconverge(&stream.block, out[2].data(), n);
        PLC_Ola(out[3].data(), right.data(), out[3].data(), n);
        PLC_OverlapAdds(&stream.block, right.data(), out[4].data(), out[4].data(), n);
        PLC_OlaEnd(&stream.block, out[5].data(), right.data(), n);
        PLC_SaveSpeech(&stream.block, out[0].data());
        for (const Samples &s : out) digest.add(s.data(), s.size());
        digest.add(stream.block);
    }
}

constexpr Row kRows[] = {
    {"CodecSpeech", codec_speech, 0x3ca54ec99a3200ee},
    {"CodecHostile", codec_hostile, 0xb08ea31b2e909a66},
    {"Decimation", decimation, 0xc2e1efe2576d5d3c},
    {"CoarsePitch", coarse_pitch, 0x054c8a0464e06433},
    {"CoarsePitchEdges", coarse_pitch_edges, 0x5ca010e01a9be879},
    {"Refinement", refinement, 0xb28c67ae78bbd30e},
    {"TrackerSpeech", tracker_speech, 0x4b26a2e8408a6aee},
    {"TrackerHostile", tracker_hostile, 0x57eb0c0bd407d068},
    {"Stream8kRareLosses", stream_speech<8000, 2, 0>, 0x9efa13ee525583f8},
    {"Stream8kBursts", stream_speech<8000, 6, 60>, 0x18cd25322b0b3621},
    {"Stream8kOutages", stream_speech<8000, 10, 92>, 0x99334b516c4ffb1b},
    {"Stream8kHostile", stream_hostile<8000>, 0xf8725ed404a681d7},
    {"Stream16kRareLosses", stream_speech<16000, 2, 0>, 0x38bf0b27ad87bd87},
    {"Stream16kBursts", stream_speech<16000, 6, 60>, 0x3d05b8192a17ebe7},
    {"Stream16kOutages", stream_speech<16000, 10, 92>, 0xc1c62845613fe4ce},
    {"Stream16kHostile", stream_hostile<16000>, 0x0ffaad99b0f2bc0c},
    {"NarrowbandPitch", narrowband_pitch, 0x0517a7e347666c1f},
    {"Primitives", primitives, 0x040de9ea79a985d0},
};

class Digests : public testing::TestWithParam<Row> {};

TEST_P(Digests, AreUnchanged) {
    Digest digest;
    GetParam().run(digest);
    EXPECT_EQ(digest.value, GetParam().expected) << std::hex << "0x" << digest.value;
}

INSTANTIATE_TEST_SUITE_P(All, Digests, testing::ValuesIn(kRows),
                         [](const auto &row) { return row.param.name; });

} // namespace
