// What the tests share: seeded signals, the speech clips, digests, and a look into the concealment's block.
#pragma once

#include "cvsd_qor.h"
#include "plc/block.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <random>
#include <string>
#include <vector>

using Samples = std::vector<std::int16_t>;

// The same numbers on every machine, which the standard distributions do not promise.
struct Random {
    std::mt19937 engine;
    explicit Random(std::uint32_t seed) : engine(seed) {}
    int in(int low, int high) {
        return low + static_cast<int>(engine() % (static_cast<unsigned>(high - low) + 1U));
    }
};

inline std::int16_t sample(std::int64_t v) {
    return static_cast<std::int16_t>(std::clamp<std::int64_t>(v, INT16_MIN, INT16_MAX));
}

// Sweeps of a whole domain take each n-th value, and every one with EXHAUSTIVE set in the environment.
inline int stride(int n) { return std::getenv("EXHAUSTIVE") != nullptr ? 1 : n; }

// FNV-1a over values, not bytes, so that byte order does not matter. Any single wrong value changes it.
struct Digest {
    std::uint64_t value = 14695981039346656037U;
    void add(std::int64_t v) { value = (value ^ static_cast<std::uint64_t>(v)) * 1099511628211U; }
    template <class T>
    void add(const T *values, std::size_t n) {
        std::for_each(values, values + n, [this](T v) { add(v); });
    }
    void add(const CvsdState &s) {
        for (const std::int32_t v : {s.accumulator, s.step, s.run_bits}) add(v);
    }
    void add(const PitchTrackerState &t) {
        for (const std::int32_t v : {t.lag_energy, t.lag_corr}) add(v);
        for (const std::int16_t v : {t.refine_len, t.scale_shift, t.amp_weight, t.amp_ratio, t.coarse_pitch,
                                     t.tracked_pitch, t.decim_exp})
            add(v);
        add(t.sig_hist, std::size(t.sig_hist));
        add(t.decim_mem, std::size(t.decim_mem));
        add(t.decim_hist, std::size(t.decim_hist));
    }
    // Everything that outlives a call.
    void add(const PlcBlock &block) {
        const cvsd_qor::Block &b = cvsd_qor::unwrap(&block);
        for (const std::int32_t v :
             {b.erase_count, b.ola_len, b.pitch, b.syn_pos, b.syn_len, b.reconverge_len})
            add(v);
        add(b.pitch_buf_end - b.pitch_buf);
        add(b.pitch_buf_end - b.syn_start);
        add(b.history, std::size(b.history));
        add(b.last_quarter, std::size(b.last_quarter));
        add(b.pitch_buf, std::size(b.pitch_buf));
        if (b.sample_rate == 16000) add(b.tracker);
    }
};

// n samples of the kinds that break fixed-point code: any level, extremes, runs, pulse trains, repetition.
inline void hostile_stretch(Random &random, std::int16_t *s, int n) {
    constexpr std::int16_t kExtremes[] = {INT16_MIN, -INT16_MAX, -1, 0, 1, INT16_MAX};
    const int kind = random.in(0, 6);
    const int level = random.in(0, 15);
    const int period = random.in(2, random.in(0, 1) == 0 ? 45 : 330);
    const int phase = random.in(0, period - 1);
    const int ripple = random.in(4, 30);
    const int decay = random.in(24, 33);
    for (int i = 0; i < n; ++i) {
        const int at = (i + phase) % period;
        int v = 0;
        if (kind == 0) v = random.in(INT16_MIN, INT16_MAX) >> level;
        if (kind == 1) v = kExtremes[random.in(0, 5)];
        if (kind == 2) v = at == 0 ? 32767 >> level : 0;
        if (kind == 3) v = phase % 2 != 0 ? INT16_MIN >> level : INT16_MAX >> level;
        if (kind == 4) v = i % 2 != 0 ? INT16_MIN >> level : INT16_MAX >> level;
        if (kind == 5) v = (at * (period - at) - period * period / 8) * 65536 / (period * period) >> level;
        if (kind == 6 && i < period) v = random.in(0, 2) == 0 ? random.in(INT16_MIN, INT16_MAX) >> level : 0;
        if (kind == 6 && i >= period) v = s[i - period] * decay / 32;
        s[i] = sample(v + (random.in(INT16_MIN, INT16_MAX) >> ripple));
    }
}

// One such stretch, or several one after the other.
inline Samples hostile(Random &random, int n) {
    Samples s(static_cast<std::size_t>(n));
    const int longest = random.in(0, 2) == 0 ? n / 3 + 1 : n;
    for (int at = 0; at < n; at += longest) hostile_stretch(random, s.data() + at, std::min(longest, n - at));
    return s;
}

// Speech that ships with the project; 8000 or 16000 Hz.
inline Samples speech(int rate) {
    const std::string path = CLIPS_DIR "/speech_" + std::to_string(rate / 1000) + "k.wav";
    std::ifstream file(path, std::ios::binary);
    const std::vector<unsigned char> bytes(std::istreambuf_iterator<char>(file), {});
    if (bytes.size() < 44) std::abort();
    Samples s;
    for (std::size_t i = 44; i + 1 < bytes.size(); i += 2)
        s.push_back(static_cast<std::int16_t>(bytes[i] | bytes[i + 1] << 8));
    return s;
}

// A tracker of its own, as construction leaves one.
struct Tracker {
    std::int16_t scratch[cvsd_qor::kScratch] = {};
    PitchTrackerState state{};
    Tracker() {
        state.refine_len = 1;
        state.coarse_pitch = 100;
        state.tracked_pitch = 50;
        state.decim_exp = 31;
        state.scratch = scratch;
    }
    Tracker(const Tracker &) = delete;
    Tracker &operator=(const Tracker &) = delete;
};

// Lag, amp_ratio, amp_weight, refine_len, scale_shift, correlation, energy.
using Refined = std::array<std::int32_t, 7>;

inline Refined refine(const Samples &sig_hist, int coarse_pitch) {
    Tracker t;
    PitchTrackerState &s = t.state;
    const std::int16_t lag =
        PLC_RefinePitch(&s, &s.amp_ratio, &s.lag_corr, &s.lag_energy, &s.amp_weight, &s.refine_len,
                        &s.scale_shift, sig_hist.data(), static_cast<std::int16_t>(coarse_pitch));
    return {lag, s.amp_ratio, s.amp_weight, s.refine_len, s.scale_shift, s.lag_corr, s.lag_energy};
}

inline int coarse(const Samples &decimated, int prev) {
    Tracker t;
    return PLC_CoarsePitch(&t.state, decimated.data(), static_cast<std::int16_t>(prev));
}

// One stream, a frame at a time.
struct Stream {
    PlcBlock block;
    cvsd_qor::Block &b = cvsd_qor::unwrap(&block);
    explicit Stream(int rate) { EXPECT_EQ(g711plc_construct_v2(&block, rate), 0); }
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;
    // The frame that begins at a sample of s, received or lost; returns the output.
    Samples frame(const Samples &s, std::size_t at, bool lost) {
        Samples f(&s.at(at), &s.at(at) + b.frame_len);
        lost ? g711plc_dofe_v2(&block, f.data()) : g711plc_addtohistory_v2(&block, f.data());
        return f;
    }
    // What was stored by the last call, before the delay.
    const std::int16_t *newest() const { return b.history + b.history_len - b.frame_len; }
};
