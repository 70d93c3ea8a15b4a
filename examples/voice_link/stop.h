// Ctrl-C and similar signals end the program in order: it first removes temporary and incomplete files.
#pragma once

struct Stopped {};

// From then on the first SIGINT, SIGTERM or SIGHUP is only noted.
void catch_signals();

// Called for every block of work. Throws Stopped once a signal was noted.
void check_stop();

// Ends the program by the signal that was noted, so that the calling process sees the cause.
[[noreturn]] void end_by_signal();
