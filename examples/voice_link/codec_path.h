// Speech at 8000 Hz over the codec, which works at 64000 Hz and one bit per sample: one byte for each sample
// of speech.
#pragma once

#include "cvsd_qor.h"
#include "resampler.h"
#include "stopwatch.h"
#include "store.h"

constexpr int kSpeechRate = 8000;
constexpr int kCodecRate = 64000;
constexpr int kPacket = 30; // bytes of a packet, and samples of its speech: 3.75 ms

// How far the filter reaches by which the receiver comes back to 8000 Hz.
//
// Behind a lossy channel it must be short: as long as it reaches, what stands in for a missing packet is
// mixed into the good speech that follows, where concealment takes it for speech. Of 8 taps at most 8 samples
// of the next frame are touched, about as many as the shortest join at the end of a loss takes (7 of up to
// 30). A longer filter reaches beyond the join. Where nothing is lost it is nearer to the original.
enum class Filter {
    lossy = 0,   // 8 taps, delay 4 samples
    lossless = 4 // 64 taps, delay 32 samples
};

// What the decoder does while packets are missing: nothing, or it decodes the idle pattern and settles.
enum class WhileLost { hold, idle };

// The sending end of a stream. The packets' content lines up with the speech.
class Sender {
public:
    Sender();
    // Pieces of any length in; appends what is ready.
    void take(std::span<const std::int16_t> speech, Bits &bits);
    // Ends the stream: appends until it has that many bytes, silence behind the speech.
    void finish(std::size_t bytes, Bits &bits);
    double library_seconds() const { return library_.seconds(); }

private:
    CvsdState encoder_{};
    Resampler up_;
    Samples pcm_; // not yet encoded
    bool begun_ = false;
    std::size_t made_ = 0; // bytes
    Stopwatch library_;
};

// The receiving end of a stream: pieces of any length in, as many samples as bytes out, late by a constant
// delay.
class Receiver {
public:
    explicit Receiver(Filter filter, WhileLost while_lost = WhileLost::hold);
    void take(std::span<const std::uint8_t> bits, Samples &speech);
    // Stands in for bytes that did not arrive.
    void miss(int bytes, Samples &speech);
    int delay() const { return down_.delay(); }
    double library_seconds() const { return library_.seconds(); }

private:
    CvsdState decoder_{};
    Resampler down_;
    WhileLost while_lost_;
    Samples pcm_;
    Stopwatch library_;
};
