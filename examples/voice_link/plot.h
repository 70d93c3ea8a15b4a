// Waveforms one above the other.
#pragma once

#include "store.h"

#include <span>
#include <string>
#include <vector>

struct Stretch {
    std::size_t first, last; // samples, the last one not included
};

struct Panel {
    std::string title;
    const Store &signal;
    bool holes = false; // leaves out what is shaded
};

// The script for gnuplot of a stretch of all panels, with the stretches shaded where frames were lost.
std::string waveforms(std::span<const Panel> panels, int rate, Stretch view, std::span<const Stretch> shaded);
