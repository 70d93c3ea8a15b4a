// The reports of the commands: text for people, JSON and CSV for programs.
#pragma once

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

// Named plain values in a fixed order, not nested. Values that do not exist (an infinite ratio) are null.
using Record = nlohmann::ordered_json;

// The first values of every record.
Record record_of(const char *command, const std::string &input, const std::string &output);

struct Report {       // NOLINT(bugprone-exception-escape): moving a JSON value does not throw
    std::string text; // lines
    Record record;
};

std::string printed(const char *format, ...) __attribute__((format(printf, 1, 2)));

// duration is that of the speech, in seconds.
std::string time_line(double duration, double seconds, double library_seconds);

std::string version(); // of this program and the library

// Leaves out reports that were never made, as print() does.
std::string csv(const std::vector<Report> &reports);

// Throws if not all of the text can be written.
void put(const std::string &text, std::FILE *to);

// Prints in the format "text", "json" or "csv": to standard output, or to standard error if the output is "-"
// and so uses standard output.
void print(const std::vector<Report> &reports, const std::string &format, const std::string &output);
