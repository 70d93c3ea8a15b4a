// Speech at 8000 Hz over the codec, which works at 64000 Hz with one bit per sample: one byte for each sample
// of speech.
#pragma once

#include "cvsd_qor.h"
#include "resampler.h"
#include "stopwatch.h"
#include "store.h"

constexpr int kSpeechRate = 8000;
constexpr int kCodecRate = 64000;
constexpr int kPacket = 30; // bytes of a packet, and samples of its speech: 3.75 ms

// The length of the filter with which the receiver converts back to 8000 Hz.
//
// After a lossy channel it must be short: over its length it mixes what replaces a missing packet into the
// good speech that follows, and the concealment then uses it as speech. 8 taps affect at most 8 samples of
// the next frame, about as many as the shortest join at the end of a loss has (7; the longest has 30). A
// longer filter reaches beyond the join. Without losses, a longer filter gives speech nearer to the original.
enum class Filter {
    lossy = 0,   // 8 taps, delay 4 samples
    lossless = 4 // 64 taps, delay 32 samples
};

// What the decoder does while packets are missing: nothing, or it decodes the idle pattern and decays to
// silence.
enum class WhileLost { hold, idle };

// The sending end of a stream. The content of the packets is aligned with the speech.
class Sender {
public:
    Sender();
    // Takes pieces of any length; appends the bytes that are ready.
    void take(std::span<const std::int16_t> speech, Bits &bits);
    // Ends the stream: appends silence until the stream has that many bytes.
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

// The receiving end of a stream: takes pieces of any length and gives one sample for each byte, with a
// constant delay.
class Receiver {
public:
    explicit Receiver(Filter filter, WhileLost while_lost = WhileLost::hold);
    void take(std::span<const std::uint8_t> bits, Samples &speech);
    // Replaces bytes that did not arrive.
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
