#include "jobs.h"

#include "file.h"
#include "progress.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

bool each(std::size_t count, std::size_t threads, const std::function<void(std::size_t)> &work) {
    std::atomic<std::size_t> next = 0;
    std::atomic<bool> well = true;
    std::mutex failing;
    std::exception_ptr failure;
    const auto run = [&] {
        for (std::size_t i = next++; i < count; i = next++) {
            try {
                work(i);
            } catch (const FileError &e) {
                well = false;
                say(e.what());
            } catch (...) {
                const std::lock_guard one(failing);
                failure = std::current_exception();
                next = count;
            }
        }
    };
    std::vector<std::jthread> others;
    for (std::size_t i = 1; i < std::min(threads, count); ++i) others.emplace_back(run);
    run();
    others.clear(); // joins
    if (failure != nullptr) std::rethrow_exception(failure);
    return well;
}
