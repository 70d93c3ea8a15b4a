// Loss patterns in files: 0 for each frame that arrives, 1 for each that is lost.
#pragma once

#include "channel.h"

#include <string>

// White space and commas may stand between the marks; comments reach from # to the line's end. Never empty.
Losses read_pattern(const std::string &path);

// The pattern from its start for that many frames: begun again if it is too short, cut if it is too long.
Losses fitted(const Losses &pattern, std::size_t frames);

// 60 marks to a line, below the comment.
std::string pattern_text(const Losses &lost, const std::string &comment);
