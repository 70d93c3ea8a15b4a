// Digests of everything that each service puts out, over speech and over hostile inputs.
//
// The outputs of the build that the digests come from agreed in every bit with a set of independently
// recorded vectors and with a second, literal implementation. Output bits are part of the library's promise:
// a digest that changes shows a fault. A new digest is right only for a new or different sequence of inputs,
// taken from a build that passes with the old ones, or if the definition of the output itself changes, which
// is a new major version.
#include "tests/support.h"

#include <sstream>

#ifdef __STDCPP_THREADS__
#include <thread>
#endif

namespace {

// --- Codec ----------------------------------------------------------------------------------------------

// The digest does not depend on the lengths of the calls.
void codec(Digest &digest, Random &random, const Samples &pcm, CvsdState encoder) {
    CvsdState decoder = encoder;
    Digest sent = digest.another();
    Digest received = digest.another();
    for (std::size_t at = 0, n = 0; at < pcm.size(); at += n) {
        n = std::min(static_cast<std::size_t>(8 * random.in(0, 90)), pcm.size() - at);
        const Bytes bits = encode(encoder, Samples(&pcm[at], &pcm[at] + n));
        sent("bits", bits);
        received("samples", decode(decoder, bits));
        received.frame = ++sent.frame;
    }
    digest << sent.value << received.value;
    digest("encoder's accumulator", encoder.accumulator)("encoder's step", encoder.step);
    digest("encoder's run_bits", encoder.run_bits)("decoder's accumulator", decoder.accumulator);
    digest("decoder's step", decoder.step)("decoder's run_bits", decoder.run_bits);
}

template <int Cut>
void codec_speech(Digest &digest, Random & /*random*/) {
    Random cuts(Cut);
    const Samples voice = speech(8000);
    Samples pcm;
    for (std::size_t i = 1; i < 50000; ++i)
        for (int k = 0; k < 8; ++k) pcm.push_back(sample((voice[i] * k + voice[i - 1] * (8 - k)) / 8));
    codec(digest, cuts, pcm, {0, 0, 10});
}

void codec_hostile(Digest &digest, Random &random) {
    for (int run = 0; run < 300; ++run) {
        digest.run = run;
        const CvsdState start = {random.in(-2097151, 2097151), random.in(10240, 1310720), random.in(0, 15)};
        codec(digest, random, hostile(random, 1600), start);
    }
}

// --- Pitch tracker --------------------------------------------------------------------------------------

void decimation(Digest &digest, Random &random) {
    for (int run = 0; run < 300; ++run) {
        Stream stream(16000);
        PitchTrackerState &t = stream.b.tracker;
        const Samples s = hostile(random, 12 * 120);
        digest.run = run;
        for (int frame = 0; frame < 12; ++frame) {
            digest.frame = frame;
            std::int16_t in[180];
            std::int16_t out[71];
            std::copy_n(s.data() + 120 * frame, 120, in + 60);
            PLC_Decim(in, out, &t);
            digest("in", in)("out", out);
            add(digest, t);
        }
    }
}

// Two decimated signals are mixed, and a bisection finds the gain at which the choice changes from one pitch
// to another. A threshold that is off by one moves that gain.
void coarse_pitch(Digest &digest, Random &random) {
    for (int run = 0; run < 10000; ++run) {
        const int prev = random.in(0, 3) == 0 ? random.in(-25000, INT16_MAX) : random.in(30, 330);
        const int period = random.in(4, 13);
        Samples ends[2];
        for (Samples &end : ends) {
            std::vector<int> heights(15);
            for (int &h : heights) h = random.in(-8000, 32000);
            end = run % 2 == 0 ? hostile(random, 71) : pulses(71, period, run % period, heights);
        }
        const auto mixed = [&](int gain) {
            Samples s;
            for (std::size_t i = 0; i < 71; ++i)
                s.push_back(sample((ends[0][i] * (16384 - gain) + ends[1][i] * gain) / 16384));
            return coarse(s, prev);
        };
        digest.run = run;
        digest.frame = 0;
        const int first = mixed(0);
        digest("first", first)("last", mixed(16384));
        for (int gain = 0, step = 8192; step > 0; step /= 2) {
            const int pitch = mixed(gain + step);
            ++digest.frame;
            digest("pitch", pitch);
            if (pitch == first) gain += step;
        }
    }
}

void refinement(Digest &digest, Random &random) {
    constexpr const char *kFields[] = {"lag",         "amp_ratio", "amp_weight", "refine_len",
                                       "scale_shift", "lag_corr",  "lag_energy"};
    for (digest.run = 0; digest.run < 6000; ++digest.run) {
        const Samples s = hostile(random, 561);
        for (digest.frame = 0; digest.frame < 3; ++digest.frame) {
            const Refined refined = refine(s, digest.frame == 0 ? random.in(0, 444) : random.in(36, 324));
            for (std::size_t i = 0; i < refined.size(); ++i) digest(kFields[i], refined[i]);
        }
    }
}

void track(Digest &digest, const Samples &s) {
    Stream stream(16000);
    PitchTrackerState &t = stream.b.tracker;
    digest.frame = 0;
    for (std::size_t at = 0; at + 120 <= s.size(); at += 120, ++digest.frame) {
        digest("returned", PLC_PitchTracker(&t, &s[at]));
        add(digest, t);
    }
}

void tracker_speech(Digest &digest, Random & /*random*/) { track(digest, speech(16000)); }

void tracker_hostile(Digest &digest, Random &random) {
    for (digest.run = 0; digest.run < 300; ++digest.run) track(digest, hostile(random, 20 * 120));
}

// --- Concealment ----------------------------------------------------------------------------------------

// `begin` and `stay` are the probabilities, in percent, that a frame is lost after a good and after a lost
// one. A stream at the other rate runs between the frames and must not change the digest.
void conceal(Digest &digest, Random &random, int rate, const Samples &s, int begin, int stay) {
    Stream stream(rate);
    Stream other(24000 - rate);
    bool lost = false;
    const auto frame_len = static_cast<std::size_t>(stream.b.frame_len);
    digest.frame = 0;
    for (std::size_t at = 0; at + frame_len <= s.size(); at += frame_len, ++digest.frame) {
        lost = random.in(0, 99) < (lost ? stay : begin);
        digest(lost ? "output, frame lost" : "output", stream.frame(&s[at], lost));
        add(digest, stream.b);
        other.frame(&s[at % 480], at % 11 == 0);
    }
}

template <int Rate, int Begin, int Stay>
void stream_speech(Digest &digest, Random &random) {
    conceal(digest, random, Rate, speech(Rate), Begin, Stay);
}

template <int Rate>
void stream_hostile(Digest &digest, Random &random) {
    for (digest.run = 0; digest.run < 150; ++digest.run) {
        const Samples s = hostile(random, Rate == 8000 ? 900 : 3600);
        const int begin = random.in(1, 60);
        conceal(digest, random, Rate, s, begin, random.in(0, 95));
    }
}

// The primitives, with arguments too that the entry points never give them.
void primitives(Digest &digest, Random &random) {
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
        PLC_OlaEnd(block, out[5].data(), run % 4 < 2 ? right.data() : out[6].data(), n);
        PLC_SaveSpeech(block, out[6].data());
        plc_mem_copy(&out[7][70], &out[7].at(static_cast<std::size_t>(from)), 2 * n);
        digest.run = run;
        constexpr const char *kNames[] = {"PLC_GetSynSpeech", "PLC_ScaleSpeech", "PLC_ScaleSpeech_Reconverge",
                                          "PLC_Ola",          "PLC_OverlapAdds", "PLC_OlaEnd",
                                          "PLC_SaveSpeech",   "plc_mem_copy"};
        for (std::size_t i = 0; i < std::size(out); ++i) digest(kNames[i], out[i]);
        add(digest, b);
        digest("PLC_FindPitch_fix", PLC_FindPitch_fix(block));
    }
}

void tables(Digest &digest, Random & /*random*/) {
    digest("x", x)("x2", x2)("invk", invk)("MPTH", MPTH)("bdf", bdf);
}

struct Row {
    const char *name;
    void (*run)(Digest &, Random &);
    std::uint64_t expected;
};

constexpr Row kRows[] = {
    {"Tables", tables, 0x76b6968d26468468},
    {"CodecSpeech", codec_speech<1>, 0x16078044ccb20228},
    {"CodecSpeechCutElsewhere", codec_speech<2>, 0x16078044ccb20228},
    {"CodecHostile", codec_hostile, 0x3e36256b2e88d690},
    {"Decimation", decimation, 0x9488f32c5e9dfdcd},
    {"CoarsePitch", coarse_pitch, 0x926d3eae80767379},
    {"Refinement", refinement, 0x5730af5af1b89517},
    {"TrackerSpeech", tracker_speech, 0x05dc2cc704e97d32},
    {"TrackerHostile", tracker_hostile, 0x6c5a3d00df4a5345},
    {"Stream8kRareLosses", stream_speech<8000, 2, 0>, 0xa0f3f2e4778ae9eb},
    {"Stream8kBursts", stream_speech<8000, 6, 60>, 0xf772ab61fc638b3f},
    {"Stream8kOutages", stream_speech<8000, 10, 92>, 0xb2fb8dbdc1dfbff5},
    {"Stream8kHostile", stream_hostile<8000>, 0xeaebfcbd02a833ac},
    {"Stream16kRareLosses", stream_speech<16000, 2, 0>, 0xb76856f414c58aa1},
    {"Stream16kBursts", stream_speech<16000, 6, 60>, 0x0c4892a82e974ef1},
    {"Stream16kOutages", stream_speech<16000, 10, 92>, 0xeaeb7c2ececf6167},
    {"Stream16kHostile", stream_hostile<16000>, 0x6976278c0ad39c24},
    {"Primitives", primitives, 0xb457cf97b6450895},
};

std::uint64_t digest_of(const Row &row, std::ostream *trace = nullptr) {
    Digest digest{.trace = trace, .row = row.name};
    Random random(1);
    row.run(digest, random);
    return digest.value;
}

constexpr const char *kNextStep = R"(
The output of the library has changed in the rows above: that is a fault. To see the first frame and field that
differ, trace this tree and COMMIT, a commit where the test passes, and compare:
    CVSD_QOR_TRACE=$PWD/build/bad.txt scripts/test release -R Digests
    git worktree add --detach ../good COMMIT
    (cd ../good && CVSD_QOR_TRACE=$PWD/build/good.txt scripts/test release -R Digests)
    diff -y --suppress-common-lines -W 120 ../good/build/good.txt build/bad.txt | head
If the test fails on one machine only, trace that build and the release build instead. If the traces are equal,
threads share state: run scripts/test tsan.
)";

// On threads, to show that the services share no state. One row after the other where a machine has no
// threads, and where the environment names a file for the trace.
TEST(Digests, AreUnchangedOnThreadsOfTheirOwn) {
    std::uint64_t digests[std::size(kRows)];
    const auto one_by_one = [&digests](std::ostream *trace) {
        for (std::size_t i = 0; i < std::size(kRows); ++i) digests[i] = digest_of(kRows[i], trace);
    };
    if (const char *name = std::getenv("CVSD_QOR_TRACE")) {
        std::ofstream trace(name);
        one_by_one(&trace);
        EXPECT_TRUE(trace.flush()) << "cannot write " << name;
    } else {
#ifdef __STDCPP_THREADS__
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < std::size(kRows); ++i)
            threads.emplace_back([&digests, i] { digests[i] = digest_of(kRows[i]); });
        for (std::thread &thread : threads) thread.join();
#else
        one_by_one(nullptr);
#endif
    }
    std::ostringstream changed;
    for (std::size_t i = 0; i < std::size(kRows); ++i)
        if (digests[i] != kRows[i].expected)
            changed << "\n" << kRows[i].name << " 0x" << std::hex << digests[i];
    if (!changed.str().empty()) FAIL() << changed.str() << kNextStep;
}

} // namespace
