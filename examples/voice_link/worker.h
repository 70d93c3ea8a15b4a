// Works on a stream of blocks in its own thread, while the next blocks are made.
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
    ~Worker(); // drops the blocks that are not begun
    Worker(const Worker &) = delete;
    Worker &operator=(const Worker &) = delete;

    // Blocks while too many blocks are waiting. Throws what the work has thrown, as finish() does.
    void push(const Samples &block);
    void finish(); // waits until all blocks are done

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
