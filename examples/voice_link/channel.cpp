#include "channel.h"

#include "file.h"

#include <cctype>
#include <random>

double smallest_burst(double percent) { return percent / (100 - percent); }

Losses random_losses(std::size_t frames, double percent, double mean_burst, std::uint32_t seed) {
    // In the long run as many bursts begin as end: good · begin = lost · end.
    const double end = 1 / mean_burst;
    const double begin = end * percent / (100 - percent);

    std::mt19937 random(
        seed); // its numbers are the same everywhere, those of the standard distributions are not
    Losses lost(frames);
    bool now = false;
    for (std::size_t i = 0; i < frames; ++i) {
        const bool change = static_cast<double>(random()) < (now ? end : begin) * 0x1p32;
        lost[i] = now = now != change;
    }
    return lost;
}

Losses read_losses(const std::string &path, std::size_t frames) {
    Losses pattern;
    for (const std::uint8_t c : read_file(path)) {
        if (c == '0' || c == '1') {
            pattern.push_back(c == '1');
        } else if (std::isspace(c) == 0) {
            throw FileError(input_name(path),
                            "not a loss pattern: it holds something other than 0, 1 and white space");
        }
    }
    if (pattern.empty()) throw FileError(input_name(path), "not a loss pattern: it holds neither 0 nor 1");
    Losses lost(frames);
    for (std::size_t i = 0; i < frames; ++i) lost[i] = pattern[i % pattern.size()];
    return lost;
}

std::vector<Burst> bursts(const Losses &lost) {
    std::vector<Burst> found;
    for (std::size_t i = 0; i < lost.size(); ++i) {
        if (!lost[i]) continue;
        if (i == 0 || !lost[i - 1]) found.push_back({i, 0});
        ++found.back().length;
    }
    return found;
}
