// How far two signals are apart.
#pragma once

#include "channel.h"
#include "store.h"

#include <functional>
#include <vector>

// Signal-to-noise ratio in dB of the copy over the samples that both have. Infinite for an exact copy, and no
// number if both are silent.
double snr(const Store &original, const Store &copy);

double mean_power(const Store &signal);

// Where two signals are compared: around the lost frames and the frames beside these, in signals that frame i
// of the channel reaches `late` samples after its place.
struct Places {
    const Losses &lost;
    std::size_t frame; // samples
    std::size_t late;
};

// Log-spectral distance in dB of each copy: how far the spectra of 32 ms windows (Hann) are apart, root mean
// square over Bark bands, mean over the windows. Levels more than 40 dB below the mean power of the original
// count as equal, so that nothing is made of differences that nobody hears. Empty where nothing is lost.
// Calls progress with the share done since the last call, from any thread.
std::vector<double> spectral_distances(const Store &original, double power,
                                       std::span<const Store *const> copies, int rate, const Places &places,
                                       const std::function<void(double)> &progress);
