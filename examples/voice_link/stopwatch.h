// Adds up the time that some work takes.
#pragma once

#include <chrono>

class Stopwatch {
public:
    template <typename Work>
    void time(Work work) {
        const auto start = std::chrono::steady_clock::now();
        work();
        total_ += std::chrono::steady_clock::now() - start;
    }
    double seconds() const { return std::chrono::duration<double>(total_).count(); }

private:
    std::chrono::steady_clock::duration total_{};
};
