// Pictures by gnuplot.
#pragma once

#include <string>

bool can_draw(const std::string &path); // by the name's ending: .svg or .png

// For use in a script: within quotes of gnuplot's.
std::string quoted(const std::string &text);

// Throws where gnuplot cannot draw such a picture: a trial, before any long work.
void check_gnuplot(const std::string &path);

// Runs the script, which draws on the terminal that is set for it. size in units of 1/75 inch. The picture is
// an output like any other: it comes through a pipe and is written whole or not at all.
std::string drawn(const std::string &path, int width, int height, const std::string &script);
