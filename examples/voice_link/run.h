// One run over the channel: the losses that were asked for, and the report.
#pragma once

#include "chain.h"
#include "report.h"

struct Run {
    std::string input, output;
    double loss = 0, burst = 0; // asked for: percent, mean length in frames
    bool exact = false;
    std::uint32_t seed = 0;
    WhileLost while_lost = WhileLost::hold;
    std::string pattern;            // a file, in place of random losses
    std::size_t pattern_frames = 0; // frames in the file
};

// Random losses, or those of the pattern if it is not empty.
Losses losses_of(const Run &run, const Losses &pattern, std::size_t frames);

const char *name_of(WhileLost way);

// What was asked for, in a few words.
std::string asked(const Run &run);

Report report_on(const char *command, const Run &run, const Sent &sent, const Losses &lost,
                 const Heard &heard);
