// How different two signals are.
#pragma once

#include "channel.h"
#include "store.h"

#include <functional>
#include <vector>

// Signal-to-noise ratio of the copy in dB, over the samples that both have. Infinite for an exact copy, and
// not a number if both are silent.
double snr(const Store &original, const Store &copy);

double mean_power(const Store &signal);

// Where two signals are compared: around the lost frames and the frames beside these. In the signals, frame i
// of the channel lies `late` samples before its place i * frame.
struct Places {
    const Losses &lost;
    std::size_t frame; // samples
    std::size_t late;
};

// Log-spectral distance of each copy in dB: the difference of the spectra of 32 ms windows (Hann), root mean
// square over Bark bands, mean over the windows. Levels more than 40 dB below the mean power of the original
// count as equal, so that inaudible differences have no effect. Empty if nothing is lost. Calls progress with
// the share done since the last call, from any thread.
std::vector<double> spectral_distances(const Store &original, double power,
                                       std::span<const Store *const> copies, int rate, const Places &places,
                                       const std::function<void(double)> &progress);
