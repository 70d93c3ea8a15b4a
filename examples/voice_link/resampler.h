// Sample rate conversion of a stream, in pieces of any length.
#pragma once

#include "store.h"

#include <memory>
#include <span>
#include <vector>

struct SpeexResamplerState_;

class Resampler {
public:
    // quality is that of speexdsp, 0..10. The length of the filter is 8, 16, 32, 48, 64, 80, 96, 128, 160,
    // 192 or 256 samples of the lower of the two rates. It delays the output by half of that, which is
    // delay().
    Resampler(int from, int to, int quality);

    // Converts a piece of any length; appends to output.
    void run(std::span<const std::int16_t> input, Samples &output);

    int delay() const; // output samples
    // Removes the delay: there is no output until the filter is half full, and then the output is aligned
    // with the input. To be called before the first run().
    void line_up();

private:
    std::unique_ptr<SpeexResamplerState_, void (*)(SpeexResamplerState_ *)> state_;
    int from_, to_;
};
