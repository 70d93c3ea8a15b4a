// What the commands say about their work: text for people, JSON and CSV for programs.
#pragma once

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

// Flat: plain values by name, in a fixed order. Numbers that do not exist (an infinite ratio) are null.
using Record = nlohmann::ordered_json;

// What all records begin with.
Record record_of(const char *command, const std::string &input, const std::string &output);

struct Report {       // NOLINT(bugprone-exception-escape): moving a JSON value does not throw
    std::string text; // lines
    Record record;
};

std::string printed(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Of speech of that many seconds.
std::string time_line(double duration, double seconds, double library_seconds);

std::string version(); // of this program and the library

// Reports that were never made are left out, here and below.
std::string csv(const std::vector<Report> &reports);

// Throws if not all of the text can be written.
void put(const std::string &text, std::FILE *to);

// In the format "text", "json" or "csv": to standard output, or to standard error where that is taken by an
// output called "-".
void print(const std::vector<Report> &reports, const std::string &format, const std::string &output);
