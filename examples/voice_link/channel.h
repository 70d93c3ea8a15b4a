// The channel: which frames are lost.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

using Losses = std::vector<bool>; // one for each frame, true where it is lost

struct Burst {
    std::size_t first, length; // frames
};

// The smallest mean burst that can lose this share of frames: between two bursts lies at least one good
// frame.
double smallest_burst(double percent);

// Two states, good and lost, each with its own chance of being left after a frame. The same seed gives the
// same losses.
Losses random_losses(std::size_t frames, double percent, double mean_burst, std::uint32_t seed);

// A file of 0 (arrived) and 1 (lost), with any white space between; begun again if it is too short.
Losses read_losses(const std::string &path, std::size_t frames);

std::vector<Burst> bursts(const Losses &lost);
