// Waveforms one above the other, drawn by gnuplot.
#pragma once

#include <cstdint>
#include <span>
#include <string>

struct Stretch {
    std::size_t first, last; // samples, the last one not included
};

struct Panel {
    std::string title;
    std::span<const std::int16_t> signal;
    bool holes = false; // leaves out what is shaded
};

bool can_draw(const std::string &path); // by the name's ending: .svg or .png

void draw(const std::string &path, std::span<const Panel> panels, int rate, Stretch view,
          std::span<const Stretch> shaded);
