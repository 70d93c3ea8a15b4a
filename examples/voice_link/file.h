// Files and standard streams. "-" is standard input or output.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

// A file that cannot be read, understood or written. what() is one line that names the file and the cause.
class FileError : public std::runtime_error {
public:
    FileError(const std::string &path, const std::string &cause) : std::runtime_error(path + ": " + cause) {}
};

// Throws FileError with the cause from errno, or Stopped if a signal is the cause.
[[noreturn]] void fail(const std::string &path, const std::string &what);

std::string input_name(const std::string &path);
std::string output_name(const std::string &path);
std::string suffix_of(const std::string &path); // in lower case, with its dot; empty if there is none

using File = std::unique_ptr<std::FILE, int (*)(std::FILE *)>;

// A file without a name, in $TMPDIR or the system's folder for temporary files.
File temporary_file();

File open_input(const std::string &path);
// The same for a file that must be able to seek: a pipe is copied to a temporary file first. An empty file is
// an error.
File open_seekable(const std::string &path);
double file_size(const File &file); // bytes; 0 for a pipe
// Fills the block as far as the file goes, and returns the number of bytes: 0 at the end of the file.
std::size_t read_block(std::FILE *file, const std::string &path, std::span<std::uint8_t> block);
// An empty file is an error.
std::vector<std::uint8_t> read_file(const std::string &path);

// An output file. It has a temporary name beside its own until commit(), and is removed if that is not
// called. An output that is not a regular file (a device, a pipe) has no temporary name and is written
// directly.
class OutputFile {
public:
    explicit OutputFile(const std::string &path);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    void write(std::span<const std::uint8_t> bytes);
    void write(const std::string &text);
    int descriptor() const { return fileno(file_.get()); }
    bool can_seek() const { return pending_; }
    void finish(); // complete on the disk, but still under the temporary name
    void commit();

private:
    std::string path_;
    std::string target_; // path_ with links resolved
    std::string written_as_;
    bool pending_ = false;
    File file_;
};

inline std::span<const std::uint8_t> bytes_of(std::span<const std::int16_t> samples) {
    return {reinterpret_cast<const std::uint8_t *>(samples.data()), samples.size_bytes()};
}
