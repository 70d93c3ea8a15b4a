#include "channel.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

namespace {

// The generator's numbers are the same everywhere; those of the standard library's distributions are not. So
// a probability is an integer that is compared with each number.
using Random = std::mt19937;

std::uint64_t chance(double probability) {
    return static_cast<std::uint64_t>(std::llround(probability * 0x1p32));
}

// True `hits` times out of `cases`.
bool draw(Random &random, std::size_t hits, std::size_t cases) {
    return static_cast<std::uint64_t>(random()) * cases < static_cast<std::uint64_t>(hits) << 32;
}

} // namespace

double smallest_burst(double percent) {
    return percent < 100 ? percent / (100 - percent) : std::numeric_limits<double>::infinity();
}

Losses random_losses(std::size_t frames, double percent, double mean_burst, std::uint32_t seed) {
    if (percent >= 100) return Losses(frames, true);
    // In the long run the number of bursts that begin equals the number that end: good · begin = lost · end.
    const std::uint64_t end = chance(1 / mean_burst);
    const std::uint64_t begin = chance(percent / (100 - percent) / mean_burst);

    Random random(seed);
    Losses lost(frames);
    bool now = false;
    std::uint64_t change = chance(percent / 100); // for the first frame, which has none before it
    for (std::size_t i = 0; i < frames; ++i) {
        if (random() < change) now = !now;
        lost[i] = now;
        change = now ? end : begin;
    }
    return lost;
}

Losses exact_losses(std::size_t frames, double percent, double mean_burst, std::uint32_t seed) {
    auto left = static_cast<std::size_t>(std::llround(static_cast<double>(frames) * percent / 100));
    const std::size_t good = frames - left;
    auto bursts = static_cast<std::size_t>(std::llround(static_cast<double>(left) / mean_burst));
    bursts = std::min({std::max<std::size_t>(bursts, 1), left, good + 1});

    // There is room for one burst before each good frame and after the last one. The lost frames in a row are
    // cut into bursts at random places between two of them.
    Random random(seed);
    Losses lost;
    for (std::size_t rooms = good + 1; rooms > 0; --rooms) {
        if (draw(random, bursts, rooms)) {
            --bursts;
            do {
                lost.push_back(true);
                --left;
            } while (left > 0 && !draw(random, bursts, left));
        }
        if (rooms > 1) lost.push_back(false);
    }
    return lost;
}

Tally tally(const Losses &lost) {
    Tally sum;
    std::size_t length = 0;
    for (std::size_t i = 0; i < lost.size(); ++i) {
        length = lost[i] ? length + 1 : 0;
        const bool ends = lost[i] && (i + 1 == lost.size() || !lost[i + 1]);
        sum.lost += lost[i] ? 1 : 0;
        if (!ends) continue;
        ++sum.bursts;
        ++sum.by_length[length];
    }
    sum.frames = lost.size();
    return sum;
}
