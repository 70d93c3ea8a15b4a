// Pictures by gnuplot.
#pragma once

#include <string>

bool can_draw(const std::string &path); // whether the name ends in .svg or .png

// In gnuplot's quotes, for a script.
std::string quoted(const std::string &text);

// Throws if gnuplot cannot draw such a picture. To be called before any long work.
void check_gnuplot(const std::string &path);

// Runs the script, which draws on a terminal of this size, in units of 1/75 inch. Returns the picture, which
// comes through a pipe: so it can be written like any other output, completely or not at all.
std::string drawn(const std::string &path, int width, int height, const std::string &script);
