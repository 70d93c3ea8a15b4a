// Loss patterns in files: 0 for each frame that arrives, 1 for each that is lost.
#pragma once

#include "channel.h"

#include <string>

// White space and commas may stand between the marks; comments go from # to the line's end. The result is
// never empty.
Losses read_pattern(const std::string &path);

// The pattern for that many frames: repeated if it is too short, cut if it is too long.
Losses fitted(const Losses &pattern, std::size_t frames);

// The comment, then 60 marks to a line.
std::string pattern_text(const Losses &lost, const std::string &comment);
