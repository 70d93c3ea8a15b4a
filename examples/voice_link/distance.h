// How far two signals are apart.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

// Signal-to-noise ratio in dB of the copy over the samples that both have. Infinite for an exact copy, and no
// number if both are silent.
double snr(std::span<const std::int16_t> original, std::span<const std::int16_t> copy);

// Log-spectral distance in dB: how far the spectra of 32 ms windows (Hann) are apart, root mean square over
// the frequencies, mean over the windows around the samples given. Levels more than 40 dB below the mean
// level of the original count as equal, so that nothing is made of differences that nobody hears.
double spectral_distance(std::span<const std::int16_t> original, std::span<const std::int16_t> copy, int rate,
                         std::span<const std::size_t> around);
