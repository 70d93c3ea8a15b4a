// The channel: which frames are lost. It uses only plain arithmetic on the numbers of one well-known
// generator, so that other programs can repeat it: the same arguments give the same losses everywhere.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

using Losses = std::vector<bool>; // one for each frame, true where it is lost

// The smallest mean burst length with which this share of frames can be lost, because at least one good frame
// lies between two bursts. Infinite for 100.
double smallest_burst(double percent);

// Two states, good and lost, each with its own probability of a change after a frame. On average over all
// seeds the share of lost frames and the length of a burst are as asked for; the length is at least 1 and
// smallest_burst().
Losses random_losses(std::size_t frames, double percent, double mean_burst, std::uint32_t seed);

// Loses exactly this share of the frames, rounded to a frame, in the number of bursts that comes nearest to
// the mean length. All ways to place the bursts are equally likely.
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
