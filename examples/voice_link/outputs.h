// Which output belongs to which input.
#pragma once

#include "commands.h"

struct Task {
    std::string input, output;
    unsigned run = 0; // counted from 0, where an input is taken several times
};

// One input and one output file, or any number of inputs and a folder, which is made if it is not there.
// There an output is called as its input, with the suffix; with several runs of an input the seed of each
// stands in between. Throws where two outputs would be one file, or an input be overwritten.
std::vector<Task> tasks(const Files &files, const std::string &suffix, unsigned runs = 1,
                        std::uint32_t first_seed = 0);
