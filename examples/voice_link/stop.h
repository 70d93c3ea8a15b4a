// Ctrl-C and its kin end the program in order: temporary and half-written files are gone when it has ended.
#pragma once

struct Stopped {};

// From here on SIGINT, SIGTERM and SIGHUP are only noted, the first time.
void catch_signals();

// Called for every block of work. Throws Stopped once a signal was noted.
void check_stop();

// Ends the program by the signal that was noted, so that whoever waits for it sees the cause.
[[noreturn]] void end_by_signal();
