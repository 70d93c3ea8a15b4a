// Which output belongs to which input.
#pragma once

#include "commands.h"

struct Task {
    std::string input, output;
    unsigned run = 0; // counted from 0, where an input is taken several times
};

// One input and one output file, or any number of inputs and a folder. There an output is called as its
// input, with the suffix; with several runs of an input the seed of each stands in between. Makes nothing.
std::vector<Task> tasks(const Files &files, const std::string &suffix, unsigned runs = 1,
                        std::uint32_t first_seed = 0);

// Throws where two outputs are one file, or one replaces an input. Empty names are options that were not set.
void check_distinct(std::vector<std::string> inputs, const std::vector<Task> &tasks,
                    std::vector<std::string> outputs);

// The folder of several outputs, if it is not there.
void make_folder(const Files &files, const std::vector<Task> &tasks);
