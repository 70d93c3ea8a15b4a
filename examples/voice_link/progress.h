// What goes to standard error: messages, and a progress bar if it is a terminal.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>

class Progress {
public:
    // The whole work is that many equal parts.
    explicit Progress(std::size_t parts);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    // Adds a share of one part to what is done. From any thread.
    void advance(double share);

private:
    using Clock = std::chrono::steady_clock;
    bool shown_;
    double parts_;
    std::atomic<double> done_ = 0;
    Clock::time_point start_ = Clock::now(), drawn_ = start_;
    std::mutex drawing_;
};

// Prints a line that begins with the program's name.
void say(const std::string &message);
