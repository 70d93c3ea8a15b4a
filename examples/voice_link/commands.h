// The three subcommands, their options, and how they report.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

struct EncodeOptions {
    std::string input, output;
};

struct DecodeOptions {
    std::string input, output, original;
};

struct LinkOptions {
    std::string input, output;
    int rate = 8000;
    double loss = 10; // percent
    double burst = 2; // frames
    std::uint32_t seed = 1;
    bool exact = false;
    std::string pattern;
    std::string conceal = "on"; // or "off", "mute"
    std::string plot;
    std::optional<double> plot_from; // seconds
    double plot_length = 0.15;
};

void encode(const EncodeOptions &options);
void decode(const DecodeOptions &options);
void link(const LinkOptions &options);

// Where messages go: away from the output when that is standard output.
inline std::FILE *messages(const std::string &output) { return output == "-" ? stderr : stdout; }

// Seconds that some work takes.
template <typename Work>
double timed(Work work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}
