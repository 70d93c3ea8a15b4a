#include "file.h"

#include "stop.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

void fail(const std::string &path, const std::string &what) {
    const std::string cause = std::strerror(errno);
    check_stop();
    throw FileError(path, what + ": " + cause);
}

std::string input_name(const std::string &path) { return path == "-" ? "standard input" : path; }
std::string output_name(const std::string &path) { return path == "-" ? "standard output" : path; }

std::string suffix_of(const std::string &path) {
    std::string suffix = fs::path(path).extension().string();
    std::transform(suffix.begin(), suffix.end(), suffix.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return suffix;
}

File temporary_file() {
    std::error_code ignored;
    fs::path folder = fs::temp_directory_path(ignored);
    if (folder.empty()) folder = "/tmp";
    std::string name = (folder / "voice_link.XXXXXX").string();
    const int descriptor = mkstemp(name.data());
    if (descriptor < 0) fail(name, "cannot make a temporary file");
    unlink(name.c_str());
    return {fdopen(descriptor, "w+b"), std::fclose};
}

File open_input(const std::string &path) {
    File file(path == "-" ? fdopen(dup(STDIN_FILENO), "rb") : std::fopen(path.c_str(), "rb"), std::fclose);
    if (file == nullptr) fail(input_name(path), "cannot read");
    return file;
}

File open_seekable(const std::string &path) {
    File file = open_input(path);
    struct stat status {};
    if (fstat(fileno(file.get()), &status) == 0 && !S_ISREG(status.st_mode)) {
        File copy = temporary_file();
        std::array<std::uint8_t, 65536> block{};
        while (const std::size_t n = read_block(file.get(), path, block)) {
            if (std::fwrite(block.data(), 1, n, copy.get()) != n) fail("temporary file", "cannot write");
        }
        if (std::fflush(copy.get()) != 0) fail("temporary file", "cannot write");
        std::rewind(copy.get());
        file = std::move(copy);
        fstat(fileno(file.get()), &status);
    }
    if (status.st_size == 0) throw FileError(input_name(path), "is empty");
    return file;
}

double file_size(const File &file) {
    struct stat status {};
    return fstat(fileno(file.get()), &status) == 0 ? static_cast<double>(status.st_size) : 0;
}

std::size_t read_block(std::FILE *file, const std::string &path, std::span<std::uint8_t> block) {
    check_stop();
    const std::size_t n = std::fread(block.data(), 1, block.size(), file);
    if (std::ferror(file) != 0) fail(input_name(path), "cannot read");
    return n;
}

std::vector<std::uint8_t> read_file(const std::string &path) {
    const File file = open_input(path);
    std::vector<std::uint8_t> bytes;
    std::array<std::uint8_t, 65536> block{};
    while (const std::size_t n = read_block(file.get(), path, block)) {
        bytes.insert(bytes.end(), block.begin(), block.begin() + static_cast<std::ptrdiff_t>(n));
    }
    if (bytes.empty()) throw FileError(input_name(path), "is empty");
    return bytes;
}

OutputFile::OutputFile(const std::string &path)
    : path_(path), target_(path), written_as_(path), file_(nullptr, std::fclose) {
    std::error_code ignored;
    if (fs::is_directory(path, ignored)) throw FileError(path, "cannot write: it is a folder");
    if (path == "-") {
        file_.reset(fdopen(dup(STDOUT_FILENO), "wb"));
    } else if (fs::exists(path, ignored) && !fs::is_regular_file(path, ignored)) {
        file_.reset(std::fopen(path.c_str(), "wb"));
    } else {
        if (fs::is_regular_file(path, ignored)) target_ = fs::canonical(path).string();
        // The next number is tried where a killed program with the same process number has left a file.
        for (int i = 0; file_ == nullptr && i < 1000; ++i) {
            written_as_ = target_ + '.' + std::to_string(getpid()) + '.' + std::to_string(i) + ".part";
            file_.reset(std::fopen(written_as_.c_str(), "wbx"));
            if (file_ == nullptr && errno != EEXIST) break;
        }
        pending_ = file_ != nullptr;
    }
    if (file_ == nullptr) fail(output_name(path), "cannot write");
}

OutputFile::~OutputFile() {
    if (pending_) std::remove(written_as_.c_str());
}

void OutputFile::write(std::span<const std::uint8_t> bytes) {
    check_stop();
    if (std::fwrite(bytes.data(), 1, bytes.size(), file_.get()) != bytes.size()) {
        fail(output_name(path_), "cannot write");
    }
}

void OutputFile::write(const std::string &text) {
    write(std::span(reinterpret_cast<const std::uint8_t *>(text.data()), text.size()));
}

void OutputFile::finish() {
    if (std::fflush(file_.get()) != 0 || std::fclose(file_.release()) != 0) {
        fail(output_name(path_), "cannot write");
    }
}

void OutputFile::commit() {
    if (file_ != nullptr) finish();
    if (!pending_) return;
    if (std::rename(written_as_.c_str(), target_.c_str()) != 0) fail(path_, "cannot write");
    pending_ = false;
}
