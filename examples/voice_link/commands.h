// The subcommands and their options.
#pragma once

#include "codec_path.h"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

// Options that are legal alone, but not together.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Common to all.
struct Files {
    std::vector<std::string> names; // inputs, and the output at the end
    int channel = 0;                // of a sound file, counted from 1; 0 mixes all
    unsigned jobs = 1;
    std::string report = "text"; // or "json", "csv"
};

struct DecodeOptions : Files {
    std::string original;
};

struct LossOptions {
    int rate = 8000;
    std::uint32_t seed = 1;
    bool exact = false;
};

struct LinkOptions : Files, LossOptions {
    double loss = 10; // percent
    double burst = 2; // frames
    WhileLost while_lost = WhileLost::hold;
    unsigned seeds = 1;
    std::string pattern, write_pattern;
    std::string conceal = "on"; // or "off", "mute"
    std::string gaps, plot;
    std::optional<double> plot_from; // seconds
    double plot_length = 0.15;
};

struct SweepOptions : Files, LossOptions {
    std::vector<double> losses{0, 1, 2, 5, 10, 20, 30}, bursts{1, 2, 5};
    bool bursts_set = false;
    std::vector<WhileLost> ways{WhileLost::hold};
    unsigned seeds = 8;
};

// Return true if all files were processed. An error with one of several files is then already reported on
// standard error.
bool encode(const Files &options);
bool decode(const DecodeOptions &options);
bool link(const LinkOptions &options);
bool sweep(SweepOptions options);
