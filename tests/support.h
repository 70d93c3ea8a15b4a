// What the tests share: seeded signals, the speech clips, digests, and handles to the services.
#pragma once

#include "cvsd_qor.h"
#include "plc/block.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <numbers>
#include <ostream>
#include <random>
#include <string>
#include <vector>

using Samples = std::vector<std::int16_t>;
using Bytes = std::vector<std::uint8_t>;

inline std::int16_t sample(std::int64_t v) {
    return static_cast<std::int16_t>(std::clamp<std::int64_t>(v, INT16_MIN, INT16_MAX));
}

// Sweeps over a whole domain take every n-th value, or all of them with EXHAUSTIVE set in the environment.
inline int stride(int n) {
    static const bool exhaustive = std::getenv("EXHAUSTIVE") != nullptr;
    return exhaustive ? 1 : n;
}

// Gives the same numbers on every machine. The standard distributions do not promise that.
struct Random {
    std::mt19937 engine;
    explicit Random(std::uint32_t seed) : engine(seed) {}
    int in(int low, int high) {
        return low + static_cast<int>(engine() % (static_cast<unsigned>(high - low) + 1U));
    }
    std::int16_t any() { return sample(in(INT16_MIN, INT16_MAX)); }
};

// FNV-1a over values, not bytes, so that byte order does not matter. Any single wrong value changes it.
//
// With a trace, each named field is also a line of text there: its row, its run, its frame (or call), and the
// value or, for an array, the digest of the values.
struct Digest {
    std::uint64_t value = 14695981039346656037U;
    std::ostream *trace = nullptr;
    std::string row;
    int run = 0;
    int frame = 0;

    // Another digest at the same place.
    Digest another() const { return {.trace = trace, .row = row, .run = run, .frame = frame}; }

    template <class T>
    Digest &operator<<(const T &v) {
        if constexpr (std::is_integral_v<T>) {
            value = (value ^ static_cast<std::uint64_t>(v)) * 1099511628211U;
        } else {
            for (const auto &element : v) *this << element;
        }
        return *this;
    }
    template <class T>
    Digest &operator()(const char *field, const T &v) {
        *this << v;
        if (trace == nullptr) return *this;
        *trace << row << ", run " << run << ", frame " << frame << ": " << field;
        if constexpr (std::is_integral_v<T>) {
            *trace << ' ' << v;
        } else {
            *trace << " digest " << (Digest() << v).value;
        }
        *trace << '\n';
        return *this;
    }
};

inline void add(Digest &d, const PitchTrackerState &t) {
    d("lag_energy", t.lag_energy)("lag_corr", t.lag_corr)("refine_len", t.refine_len);
    d("scale_shift", t.scale_shift)("sig_hist", t.sig_hist)("amp_weight", t.amp_weight);
    d("amp_ratio", t.amp_ratio)("coarse_pitch", t.coarse_pitch)("tracked_pitch", t.tracked_pitch);
    d("decim_mem", t.decim_mem)("decim_exp", t.decim_exp)("decim_hist", t.decim_hist);
}

// All fields except the work area, which carries nothing from call to call.
inline void add(Digest &d, const cvsd_qor::Block &b) {
    d("frame_len", b.frame_len)("atten_step", b.atten_step)("pitch_min", b.pitch_min);
    d("pitch_max", b.pitch_max)("ola_max", b.ola_max)("decim", b.decim)("corr_len", b.corr_len);
    d("pitch_range", b.pitch_range)("corr_buf_len", b.corr_buf_len)("history_len", b.history_len);
    d("sample_rate", b.sample_rate)("erase_count", b.erase_count)("ola_len", b.ola_len)("pitch", b.pitch);
    d("syn_pos", b.syn_pos)("syn_len", b.syn_len)("history", b.history)("last_quarter", b.last_quarter);
    d("pitch_buf_end - pitch_buf", b.pitch_buf_end - b.pitch_buf)("pitch_buf_end - syn_start",
                                                                  b.pitch_buf_end - b.syn_start);
    d("reconverge_len", b.reconverge_len)("pitch_buf", b.pitch_buf);
    if (b.sample_rate == 16000) add(d, b.tracker);
}

// Samples that find faults in fixed-point code: noise of any level, extremes, pulse trains, alternating and
// constant values, parabolas, repetition. One kind for the whole signal, or another for each of several
// stretches.
inline Samples hostile(Random &random, int n) {
    constexpr std::int16_t kExtremes[] = {INT16_MIN, -INT16_MAX, -1, 0, 1, INT16_MAX};
    Samples s;
    const int longest = random.in(0, 2) == 0 ? n / 3 + 1 : n;
    for (int begin = 0; begin < n; begin += longest) {
        const int kind = random.in(0, 6);
        const int level = random.in(0, 15);
        const int period = random.in(2, random.in(0, 1) == 0 ? 45 : 330);
        const int phase = random.in(0, period - 1);
        const int ripple = random.in(4, 30);
        const int decay = random.in(24, 33);
        for (int i = 0; i < std::min(longest, n - begin); ++i) {
            const int at = (i + phase) % period;
            int v = 0;
            if (kind == 0) v = random.any() >> level;
            if (kind == 1) v = kExtremes[random.in(0, 5)];
            if (kind == 2) v = at == 0 ? INT16_MAX >> level : 0;
            if (kind == 3 || kind == 4)
                v = ((kind == 3 ? phase : i) % 2 == 0 ? INT16_MAX : INT16_MIN) >> level;
            if (kind == 5)
                v = (at * (period - at) - period * period / 8) * 4096 / (period * period) >> level / 2;
            if (kind == 6) v = random.in(0, 2) == 0 ? random.any() >> level : 0;
            if (kind == 6 && i >= period) v = s.end()[-period] * decay / 32;
            s.push_back(sample(v + random.any() / (1 << ripple)));
        }
    }
    return s;
}

// Pulses at first, first + period, ... and zeros between them. The heights repeat in turn, from the first
// pulse on.
inline Samples pulses(int n, int period, int first, const std::vector<int> &heights) {
    Samples s;
    std::size_t k = 0;
    for (int i = 0; i < n; ++i)
        s.push_back((i - first) % period == 0 ? sample(heights[k++ % heights.size()]) : sample(0));
    return s;
}

// Rounded to the nearest, so that the last bit of std::sin does not matter: for the periods 50, 80 and 101,
// which the tests use, no value is nearer than 0.01 to a half.
inline Samples sine(int n, int period) {
    Samples s;
    for (int i = 0; i < n; ++i)
        s.push_back(sample(std::lround(10000 * std::sin(2 * std::numbers::pi * i / period))));
    return s;
}

// The speech that ships with the project; 8000 or 16000 Hz.
inline Samples speech(int rate) {
    std::ifstream file(CLIPS_DIR "/speech_" + std::to_string(rate / 1000) + "k.wav", std::ios::binary);
    const std::vector<unsigned char> bytes(std::istreambuf_iterator<char>(file), {});
    Samples s;
    for (std::size_t i = 44; i + 1 < bytes.size(); i += 2)
        s.push_back(static_cast<std::int16_t>(bytes[i] | bytes[i + 1] << 8));
    return s;
}

// The bits of whole bytes of samples, and the samples of bits.
inline Bytes encode(CvsdState &state, const Samples &pcm) {
    Bytes bits(pcm.size() / 8);
    auto left = static_cast<std::int32_t>(pcm.size());
    auto written = left / 8;
    CVSD_ENC_Process(&state, pcm.data(), &left, bits.data(), &written);
    return bits;
}

inline Samples decode(CvsdState &state, const Bytes &bits) {
    Samples pcm(8 * bits.size());
    auto left = static_cast<std::int32_t>(bits.size());
    auto written = 8 * left;
    CVSD_DEC_Process(&state, bits.data(), &left, pcm.data(), &written);
    return pcm;
}

// One stream: a block for either rate, with its tracker.
struct Stream {
    PlcBlock block;
    cvsd_qor::Block &b = cvsd_qor::unwrap(&block);
    explicit Stream(int rate) { EXPECT_EQ(g711plc_construct_v2(&block, rate), 0); }
    // The output for a frame, received or lost.
    Samples frame(const std::int16_t *from, bool lost) {
        Samples f(from, from + b.frame_len);
        (lost ? g711plc_dofe_v2 : g711plc_addtohistory_v2)(&block, f.data());
        return f;
    }
};

inline int coarse(const Samples &decimated, int prev) {
    const Stream stream(16000);
    return PLC_CoarsePitch(&stream.b.tracker, decimated.data(), static_cast<std::int16_t>(prev));
}

// Lag, amp_ratio, amp_weight, refine_len, scale_shift, correlation, energy.
using Refined = std::array<std::int32_t, 7>;

inline Refined refine(const Samples &sig_hist, int coarse_pitch) {
    Stream stream(16000);
    PitchTrackerState &t = stream.b.tracker;
    const auto lag =
        PLC_RefinePitch(&t, &t.amp_ratio, &t.lag_corr, &t.lag_energy, &t.amp_weight, &t.refine_len,
                        &t.scale_shift, sig_hist.data(), static_cast<std::int16_t>(coarse_pitch));
    return {lag, t.amp_ratio, t.amp_weight, t.refine_len, t.scale_shift, t.lag_corr, t.lag_energy};
}
