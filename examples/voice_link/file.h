// Files and standard streams, each taken and written whole. "-" is standard input or output.
#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

// A file that cannot be read, understood or written. what() is one line that names the file and the cause.
class FileError : public std::runtime_error {
public:
    FileError(const std::string &path, const std::string &cause) : std::runtime_error(path + ": " + cause) {}
};

std::string input_name(const std::string &path);
std::string output_name(const std::string &path);

// Never empty: an empty file is an error.
std::vector<std::uint8_t> read_file(const std::string &path);
void write_file(const std::string &path, std::span<const std::uint8_t> bytes);

// An output file that stands under a temporary name beside its own until commit(), and is removed if that
// never comes. What is no regular file (a device, a pipe) has no temporary name and is written as it is.
class OutputFile {
public:
    explicit OutputFile(const std::string &path);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    const std::string &written_as() const { return written_as_; }
    void commit();

private:
    std::string path_;
    std::string target_; // path_ with links resolved
    std::string written_as_;
    bool pending_ = false;
};
