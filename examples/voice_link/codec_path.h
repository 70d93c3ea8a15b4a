// Speech at 8000 Hz over the codec, which works at 64000 Hz and one bit per sample: one byte for each sample
// of speech.
#pragma once

#include "cvsd_qor.h"
#include "resampler.h"

constexpr int kSpeechRate = 8000;
constexpr int kCodecRate = 64000;
constexpr int kPacket = 30; // bytes of a packet, and samples of its speech: 3.75 ms

// How far the filter reaches by which the receiver comes back to 8000 Hz.
//
// Behind a lossy channel it must be short: as long as it reaches, a missing packet's idle signal is mixed
// into the good speech that follows, where concealment takes it for speech. Of 8 taps 8 samples of the next
// frame are touched, and the join at the end of a loss, 7 to 30 samples, covers these. Each doubling of the
// taps costs 1 to 2 dB (signal to noise) in the frames after a loss, and gains half a decibel where nothing
// is lost.
enum class Filter {
    lossy = 0,   // 8 taps, delay 4 samples
    lossless = 4 // 64 taps, delay 32 samples
};

// Whole packets, the last one filled up with silence. The packets' content lines up with the speech.
std::vector<std::uint8_t> encode_speech(std::span<const std::int16_t> speech);

// The receiving end of a stream: pieces of any length in, as many samples as bytes out, late by a constant
// delay.
class Receiver {
public:
    explicit Receiver(Filter filter);
    void take(std::span<const std::uint8_t> bits, Samples &speech);
    // Stands in for bytes that did not arrive: the idle pattern, under which the decoder settles.
    void miss(int bytes, Samples &speech);
    int delay() const { return down_.delay(); }

private:
    CvsdState decoder_{};
    Resampler down_;
    Samples pcm_;
};

// A whole stream decoded, lined up with what was encoded.
Samples decode_speech(std::span<const std::uint8_t> bits);
