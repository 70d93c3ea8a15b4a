// Waveforms, one below the other.
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
    bool holes = false; // draws nothing where it is shaded
};

// The gnuplot script that draws this stretch of all panels and shades the stretches where frames were lost.
std::string waveforms(std::span<const Panel> panels, int rate, Stretch view, std::span<const Stretch> shaded);
