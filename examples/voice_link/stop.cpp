#include "stop.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <initializer_list>

namespace {

// Written by a signal's handler, read by any thread.
std::atomic<int> noted = 0;
static_assert(std::atomic<int>::is_always_lock_free);

void note(int number) { noted = number; }

} // namespace

void catch_signals() {
    std::signal(SIGPIPE, SIG_IGN); // the end of a pipe's reader and a file that is too large are reported
    std::signal(SIGXFSZ, SIG_IGN); // as write errors instead
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action {};
        if (sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) continue; // nohup
        action = {};
        action.sa_handler = note;                         // without SA_RESTART: a wait for a pipe ends
        action.sa_flags = static_cast<int>(SA_RESETHAND); // a second signal ends the program at once
        sigaction(number, &action, nullptr);
    }
}

void check_stop() {
    if (noted != 0) throw Stopped();
}

void end_by_signal() {
    std::signal(noted, SIG_DFL);
    std::raise(noted);
    std::abort();
}
