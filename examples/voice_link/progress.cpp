#include "progress.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace {

bool on_terminal() { return isatty(STDERR_FILENO) != 0; }

constexpr const char *kWipe = "\r\033[K";

} // namespace

void say(const std::string &message) {
    std::fprintf(stderr, "%svoice_link: %s\n", on_terminal() ? kWipe : "", message.c_str());
}

Progress::Progress(std::size_t parts) : shown_(on_terminal()), parts_(static_cast<double>(parts)) {}

Progress::~Progress() {
    if (shown_) std::fputs(kWipe, stderr);
}

void Progress::advance(double share) {
    constexpr int kWidth = 40;
    done_.fetch_add(share);
    const std::unique_lock one(drawing_, std::try_to_lock);
    const Clock::time_point now = Clock::now();
    if (!shown_ || !one.owns_lock() || now - drawn_ < std::chrono::milliseconds(100)) return;
    drawn_ = now;
    constexpr double kLeast = 1e-6; // the share stays below this if the size is unknown
    const double part = std::min(done_.load() / parts_, 1.0);
    if (part < kLeast) return;
    const double elapsed = std::chrono::duration<double>(now - start_).count();
    const auto left = static_cast<int>(std::min(elapsed * (1 - part) / part, 359999.0));
    const auto full = static_cast<std::size_t>(part * kWidth);
    std::fprintf(stderr, "\r[%s%s] %3.0f %%, %d:%02d:%02d left ", std::string(full, '#').c_str(),
                 std::string(kWidth - full, '.').c_str(), 100 * part, left / 3600, left / 60 % 60, left % 60);
}
