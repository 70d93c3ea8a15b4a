#include "pattern.h"

#include "file.h"

Losses read_pattern(const std::string &path) {
    Losses pattern;
    std::size_t line = 1;
    std::size_t column = 0;
    bool comment = false;
    for (const std::uint8_t c : read_file(path)) {
        ++column;
        if (c == '\n') {
            ++line;
            column = 0;
            comment = false;
        } else if (comment || c == '#') {
            comment = true;
        } else if (c == '0' || c == '1') {
            pattern.push_back(c == '1');
        } else if (std::string(" \t\r\v\f,").find(static_cast<char>(c)) == std::string::npos) {
            throw FileError(input_name(path), "not a loss pattern: line " + std::to_string(line) +
                                                  ", column " + std::to_string(column) +
                                                  " is neither 0 nor 1");
        }
    }
    if (pattern.empty()) throw FileError(input_name(path), "not a loss pattern: it holds neither 0 nor 1");
    return pattern;
}

Losses fitted(const Losses &pattern, std::size_t frames) {
    Losses lost(frames);
    for (std::size_t i = 0; i < frames; ++i) lost[i] = pattern[i % pattern.size()];
    return lost;
}

std::string pattern_text(const Losses &lost, const std::string &comment) {
    std::string text = "# " + comment + "\n";
    for (std::size_t i = 0; i < lost.size(); ++i) {
        text += lost[i] ? '1' : '0';
        if (i % 60 == 59 || i + 1 == lost.size()) text += '\n';
    }
    return text;
}
