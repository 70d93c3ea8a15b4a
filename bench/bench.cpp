// The time of each part on the shipped speech. One iteration is one pass over a clip, so that every run does
// the same work. The counters are per frame.
#include "speech.h"

#include "plc/block.h"

#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <cstdint>
#include <vector>

namespace {

using benchmark::Counter;
using benchmark::DoNotOptimize;
using benchmark::State;

constexpr double kLongFrame = 0.0075; // seconds: 120 samples at 16000 Hz, 60 bytes of the bit stream

// Runs passes of `frames` frames, each `seconds` long, and reports the time of a frame.
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

template <void (CodecStream::*direction)(std::size_t)>
void codec(State &state) {
    CodecStream s(clip(8000));
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

// The tracker on the clip, and inputs for each of its stages in every frame. The refinement gets the history
// as a call leaves it, whose past is one frame newer than in the call: its cost is the same.
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

Link link_of(const State &state, std::size_t streams) {
    return {static_cast<std::int32_t>(state.range(0)), static_cast<int>(state.range(1)), streams};
}

void frames(State &state) {
    Link link = link_of(state, 1);
    passes(state, link.lost.size(), link.seconds(), [&](std::size_t i) { link.pass(0, i); });
}

// 64 streams on each core, one frame of each in turn. x_realtime is the number of streams that the machine
// can carry.
void streams(State &state) {
    constexpr std::size_t kStreams = 64;
    Link link = link_of(state, kStreams);
    passes(state, link.lost.size() * kStreams, link.seconds(),
           [&](std::size_t i) { link.pass(i % kStreams, i / kStreams); });
}

BENCHMARK(codec<&CodecStream::encode>)->Name("encode");
BENCHMARK(codec<&CodecStream::decode>)->Name("decode");
BENCHMARK(narrowband_pitch);
BENCHMARK(tracker<&Tracker::decimate>)->Name("decimation");
BENCHMARK(tracker<&Tracker::search>)->Name("coarse_search");
BENCHMARK(tracker<&Tracker::refine>)->Name("refinement");
BENCHMARK(tracker<&Tracker::track>)->Name("tracker");
BENCHMARK(frames)->ArgNames({"Hz", "loss"})->ArgsProduct({{8000, 16000}, {0, 10}});
BENCHMARK(streams)
    ->ArgNames({"Hz", "loss"})
    ->Args({8000, 10})
    ->Args({16000, 10})
    ->ThreadPerCpu()
    ->UseRealTime();

} // namespace
