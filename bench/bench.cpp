// What each part costs on the shipped speech. One iteration is one pass over a clip, so that every run does
// the same work; the counters are of one frame.
#include "cvsd_qor.h"
#include "plc/block.h"

#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace {

using benchmark::Counter;
using benchmark::DoNotOptimize;
using benchmark::State;
using Samples = std::vector<std::int16_t>;

constexpr double kLongFrame = 0.0075; // seconds: 120 samples at 16000 Hz, 60 bytes of the bit stream

Samples clip(std::int64_t rate) {
    std::ifstream file(CLIPS_DIR "/speech_" + std::to_string(rate / 1000) + "k.wav", std::ios::binary);
    const std::vector<unsigned char> bytes(std::istreambuf_iterator<char>(file), {});
    Samples samples;
    for (std::size_t i = 44; i + 1 < bytes.size(); i += 2) {
        samples.push_back(static_cast<std::int16_t>(bytes[i] | bytes[i + 1] << 8));
    }
    return samples;
}

// Runs passes of so many frames of so many seconds each, and reports what a frame costs.
template <class Step>
void passes(State &state, std::size_t frames, double seconds, Step step) {
    for (auto _ : state) {
        for (std::size_t i = 0; i < frames; ++i) step(i);
    }
    const auto done = static_cast<double>(frames) * static_cast<double>(state.iterations());
    state.counters["frame"] = Counter(done, Counter::kIsRate | Counter::kInvert);
    state.counters["x_realtime"] = Counter(seconds * done, Counter::kIsRate);
}

// --- Codec ----------------------------------------------------------------------------------------------

constexpr std::size_t kPacket = 60; // bytes, 8 samples each

// A stream at 64000 Hz, straight lines between the samples of the 8000 Hz clip, and its bits.
struct CodecStream {
    CvsdState codec{};
    Samples pcm;
    std::vector<std::uint8_t> bits;
    std::size_t packets;

    CodecStream() {
        const Samples narrow = clip(8000);
        for (std::size_t i = 0; i < 8 * narrow.size() - 8; ++i) {
            const int from = narrow[i / 8], to = narrow[i / 8 + 1];
            pcm.push_back(static_cast<std::int16_t>(from + (to - from) * static_cast<int>(i % 8) / 8));
        }
        packets = pcm.size() / (8 * kPacket);
        bits.resize(packets * kPacket);
        CVSD_ENC_Init(&codec);
        for (std::size_t i = 0; i < packets; ++i) encode(i);
        CVSD_DEC_Init(&codec);
    }
    void encode(std::size_t i) {
        std::int32_t samples = 8 * kPacket, bytes = kPacket;
        CVSD_ENC_Process(&codec, &pcm[8 * kPacket * i], &samples, &bits[kPacket * i], &bytes);
    }
    void decode(std::size_t i) {
        std::int32_t samples = 8 * kPacket, bytes = kPacket;
        CVSD_DEC_Process(&codec, &bits[kPacket * i], &bytes, &pcm[8 * kPacket * i], &samples);
    }
};

template <void (CodecStream::*direction)(std::size_t)>
void codec(State &state) {
    CodecStream s;
    passes(state, s.packets, kLongFrame, [&](std::size_t i) { (s.*direction)(i); });
}

// --- Pitch ----------------------------------------------------------------------------------------------

void narrowband_pitch(State &state) {
    const Samples speech = clip(8000);
    PlcBlock block;
    g711plc_construct_v2(&block, 8000);
    passes(state, speech.size() / 390, kLongFrame / 2, [&](std::size_t i) {
        std::copy_n(&speech[390 * i], 390, cvsd_qor::unwrap(&block).pitch_buf);
        DoNotOptimize(PLC_FindPitch_fix(&block));
    });
}

// The tracker over the clip, with what each of its stages gets there.
struct Tracker {
    Samples speech = clip(16000);
    std::size_t frames = speech.size() / 120;
    PlcBlock block;
    PitchTrackerState &now = cvsd_qor::unwrap(&block).tracker;
    std::vector<PitchTrackerState> after; // each frame
    std::array<std::int16_t, 180> decim_in{};
    std::vector<std::array<std::int16_t, 71>> decimated{frames};

    Tracker() {
        g711plc_construct_v2(&block, 16000);
        for (std::size_t i = 0; i < frames; ++i) decimate(i);
        g711plc_construct_v2(&block, 16000);
        for (std::size_t i = 0; i < frames; ++i) track(i), after.push_back(now);
    }
    void track(std::size_t i) { DoNotOptimize(PLC_PitchTracker(&now, &speech[120 * i])); }
    void decimate(std::size_t i) {
        std::copy_n(&speech[120 * i], 120, &decim_in[60]);
        PLC_Decim(decim_in.data(), decimated[i].data(), &now);
    }
    void search(std::size_t i) {
        now.coarse_pitch =
            static_cast<std::int16_t>(PLC_CoarsePitch(&now, decimated[i].data(), now.coarse_pitch));
    }
    void refine(std::size_t i) {
        PitchTrackerState &t = after[i];
        DoNotOptimize(PLC_RefinePitch(&t, &t.amp_ratio, &t.lag_corr, &t.lag_energy, &t.amp_weight,
                                      &t.refine_len, &t.scale_shift, t.sig_hist, t.coarse_pitch));
    }
};

template <void (Tracker::*stage)(std::size_t)>
void tracker(State &state) {
    Tracker t;
    passes(state, t.frames, kLongFrame, [&](std::size_t i) { (t.*stage)(i); });
}

// --- Concealment ----------------------------------------------------------------------------------------

// A clip, cut into frames, of which so many percent are lost, in bursts of three on average; and streams of
// it.
struct Link {
    std::int32_t rate;
    std::size_t frame_len;
    double seconds; // of a frame
    Samples speech;
    std::vector<bool> lost;
    std::vector<PlcBlock> blocks;

    Link(const State &state, std::size_t n)
        : rate(static_cast<std::int32_t>(state.range(0))), frame_len(rate == 8000 ? 30 : 120),
          seconds(static_cast<double>(frame_len) / rate), speech(clip(rate)), lost(speech.size() / frame_len),
          blocks(n) {
        for (PlcBlock &block : blocks) g711plc_construct_v2(&block, rate);
        const double share = static_cast<double>(state.range(1)) / 100;
        std::minstd_rand random(1);
        bool now = false;
        for (auto &&frame : lost) {
            const double chance = now ? 2.0 / 3 : share / (1 - share) / 3;
            frame = now = static_cast<double>(random()) < chance * static_cast<double>(random.max());
        }
    }
    void pass(std::size_t stream, std::size_t i) {
        std::array<std::int16_t, 120> frame;
        std::copy_n(&speech[i * frame_len], frame_len, frame.data());
        (lost[i] ? g711plc_dofe_v2 : g711plc_addtohistory_v2)(&blocks[stream], frame.data());
        DoNotOptimize(frame);
    }
};

void frames(State &state) {
    Link link(state, 1);
    passes(state, link.lost.size(), link.seconds, [&](std::size_t i) { link.pass(0, i); });
}

// Streams side by side on every core: x_realtime is how many the machine carries at once.
void streams(State &state) {
    constexpr std::size_t kStreams = 64;
    Link link(state, kStreams);
    passes(state, link.lost.size() * kStreams, link.seconds,
           [&](std::size_t i) { link.pass(i % kStreams, i / kStreams); });
}

// The dearest frame of a clip, every frame by its fastest pass, less what the clock itself takes.
void worst_frame(State &state) {
    using Clock = std::chrono::steady_clock;
    const auto since = [](Clock::time_point begin) {
        return std::chrono::duration<double, std::nano>(Clock::now() - begin).count();
    };
    Link link(state, 1);
    std::vector<double> least(link.lost.size(), 1e9);
    double clock = 1e9;
    passes(state, link.lost.size(), link.seconds, [&](std::size_t i) {
        clock = std::min(clock, since(Clock::now()));
        const auto begin = Clock::now();
        link.pass(0, i);
        least[i] = std::min(least[i], since(begin));
    });
    const double sum = std::accumulate(least.begin(), least.end(), 0.0);
    const double worst = *std::max_element(least.begin(), least.end()) - clock;
    state.counters["worst/mean"] = worst / (sum / static_cast<double>(least.size()) - clock);
}

BENCHMARK(codec<&CodecStream::encode>)->Name("encode");
BENCHMARK(codec<&CodecStream::decode>)->Name("decode");
BENCHMARK(narrowband_pitch);
BENCHMARK(tracker<&Tracker::decimate>)->Name("decimation");
BENCHMARK(tracker<&Tracker::search>)->Name("coarse_search");
BENCHMARK(tracker<&Tracker::refine>)->Name("refinement");
BENCHMARK(tracker<&Tracker::track>)->Name("tracker");
BENCHMARK(frames)->ArgNames({"Hz", "loss"})->ArgsProduct({{8000, 16000}, {0, 10}});
BENCHMARK(worst_frame)->ArgNames({"Hz", "loss"})->Args({8000, 10})->Args({16000, 10});
BENCHMARK(streams)
    ->ArgNames({"Hz", "loss"})
    ->Args({8000, 10})
    ->Args({16000, 10})
    ->ThreadPerCpu()
    ->UseRealTime();

} // namespace
