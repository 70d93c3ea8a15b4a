// Work on a stream of blocks in a thread of its own, while the next blocks are made.
#pragma once

#include "store.h"

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>

class Worker {
public:
    explicit Worker(std::function<void(const Samples &)> work);
    ~Worker(); // gives up what is not begun
    Worker(const Worker &) = delete;
    Worker &operator=(const Worker &) = delete;

    // Waits while too many blocks are waiting. Throws what the work has thrown, as finish() does.
    void push(const Samples &block);
    void finish(); // all blocks are done

private:
    void run();

    std::function<void(const Samples &)> work_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Samples> waiting_;
    bool ended_ = false;
    std::exception_ptr failure_;
    std::jthread thread_; // the last member: it uses the others
};
