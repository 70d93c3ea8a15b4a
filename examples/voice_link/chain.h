// The chain from a sound file to the listener: what is sent, and what is heard after losses.
#pragma once

#include "audio.h"
#include "channel.h"
#include "codec_path.h"

#include <array>
#include <optional>

struct Format {
    int rate;
    std::size_t frame; // samples
    int delay;         // of the concealment, samples
    bool codec;
};

Format format_of(int rate);

// What replaces lost frames.
struct Treatment {
    const char *name, *key; // for people, for programs
};
constexpr std::array<Treatment, 3> kTreatments{
    {{"concealed", "concealed"}, {"last frame repeated", "repeated"}, {"silence", "silent"}}};
enum : std::size_t { kConcealed, kRepeated, kSilent };

// A file that is sent: the part of the chain that does not depend on the losses. All signals are aligned with
// the speech.
struct Sent {
    Format format{};
    Store speech;
    std::optional<BitStore> bits; // if there is a codec
    std::optional<Store> decoded; // if there is a codec: what is heard without losses
    std::size_t frames = 0;
    double power = 0; // of what is heard without losses
    double seconds = 0, library_seconds = 0;
    const Store &loss_free() const { return decoded ? *decoded : speech; }
    double duration() const { return static_cast<double>(speech.size()) / format.rate; }
};

Sent send(const Source &source, int rate, Progress &progress, double share);

struct Heard {
    std::array<Store, kTreatments.size()> signals; // aligned with the speech
    std::vector<double> distances;                 // of each from the loss-free signal; empty without losses
    int delay = 0; // of the receiver with concealment, samples; already removed from the signals
    int late = 0;  // the part of delay before the concealment
    double seconds = 0, library_seconds = 0;
};

// One run, with one frame for each item of lost. Also measures the distances.
Heard receive(const Sent &sent, const Losses &lost, WhileLost while_lost, Progress &progress, double share);
