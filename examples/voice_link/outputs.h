// Which output belongs to which input.
#pragma once

#include "commands.h"

struct Task {
    std::string input, output;
    unsigned run = 0; // counted from 0, if an input is used several times
};

// One input and one output file, or any number of inputs and a folder. In a folder an output has the name of
// its input, with the suffix; with several runs of an input, the seed stands before the suffix. Creates no
// file.
std::vector<Task> tasks(const Files &files, const std::string &suffix, unsigned runs = 1,
                        std::uint32_t first_seed = 0);

// Throws if two outputs are the same file, or if an output replaces an input. Empty names are options that
// were not set.
void check_distinct(std::vector<std::string> inputs, const std::vector<Task> &tasks,
                    std::vector<std::string> outputs);

// Creates the folder of several outputs, if it does not exist.
void make_folder(const Files &files, const std::vector<Task> &tasks);
