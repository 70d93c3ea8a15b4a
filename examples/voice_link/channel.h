// The channel: which frames are lost. Plain arithmetic on the numbers of one well-known generator and nothing
// else, so that other programs can restate it: the same arguments give the same losses everywhere.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

using Losses = std::vector<bool>; // one for each frame, true where it is lost

// The smallest mean burst that can lose this share of frames: between two bursts lies at least one good
// frame. Infinite for 100.
double smallest_burst(double percent);

// Two states, good and lost, each with its own chance of being left after a frame. In the mean over all seeds
// every frame is lost with the share asked for, and a burst has the length asked for: at least 1 and
// smallest_burst().
Losses random_losses(std::size_t frames, double percent, double mean_burst, std::uint32_t seed);

// Loses just this share of the frames, rounded to a frame, in as many bursts as come nearest to the mean
// length. All ways to place them are equally likely.
Losses exact_losses(std::size_t frames, double percent, double mean_burst, std::uint32_t seed);

struct Tally {
    std::size_t frames = 0, lost = 0, bursts = 0;
    std::map<std::size_t, std::size_t> by_length; // bursts of each length
    double percent() const {
        return frames == 0 ? 0 : 100 * static_cast<double>(lost) / static_cast<double>(frames);
    }
    double mean_burst() const {
        return bursts == 0 ? 0 : static_cast<double>(lost) / static_cast<double>(bursts);
    }
};
Tally tally(const Losses &lost);
