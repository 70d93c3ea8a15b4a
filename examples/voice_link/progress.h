// What goes to standard error: messages, and a bar where that is a terminal.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>

class Progress {
public:
    // The whole work is that many parts alike.
    explicit Progress(std::size_t parts);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    // So much more of one part is done. From any thread.
    void advance(double share);

private:
    using Clock = std::chrono::steady_clock;
    bool shown_;
    double parts_;
    std::atomic<double> done_ = 0;
    Clock::time_point start_ = Clock::now(), drawn_ = start_;
    std::mutex drawing_;
};

// A line of its own, headed by the program's name.
void say(const std::string &message);
