#include "worker.h"

#include <utility>

Worker::Worker(std::function<void(const Samples &)> work)
    : work_(std::move(work)), thread_([this] { run(); }) {}

Worker::~Worker() {
    const std::lock_guard lock(mutex_);
    waiting_.clear();
    ended_ = true;
    changed_.notify_all();
}

void Worker::push(const Samples &block) {
    constexpr std::size_t kMost = 16;
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return waiting_.size() < kMost || failure_ != nullptr; });
    if (failure_ != nullptr) std::rethrow_exception(failure_);
    waiting_.push_back(block);
    changed_.notify_all();
}

void Worker::finish() {
    {
        const std::lock_guard lock(mutex_);
        ended_ = true;
        changed_.notify_all();
    }
    thread_.join();
    if (failure_ != nullptr) std::rethrow_exception(failure_);
}

void Worker::run() {
    while (true) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return ended_ || !waiting_.empty(); });
        if (waiting_.empty()) return;
        const Samples block = std::move(waiting_.front());
        waiting_.pop_front();
        changed_.notify_all();
        lock.unlock();
        try {
            work_(block);
        } catch (...) {
            lock.lock();
            failure_ = std::current_exception();
            waiting_.clear();
            changed_.notify_all();
            return;
        }
    }
}
