#include "file.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

struct Closer {
    void operator()(std::FILE *f) const { std::fclose(f); }
};
using File = std::unique_ptr<std::FILE, Closer>;

std::string cause() { return std::strerror(errno); }

// Written out to the last byte, or false with errno.
bool put(std::FILE *f, std::span<const std::uint8_t> bytes) {
    return std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size() && std::fflush(f) == 0;
}

} // namespace

std::string input_name(const std::string &path) { return path == "-" ? "standard input" : path; }
std::string output_name(const std::string &path) { return path == "-" ? "standard output" : path; }

std::vector<std::uint8_t> read_file(const std::string &path) {
    const std::string name = input_name(path);
    File opened;
    std::FILE *f = stdin;
    if (path != "-") {
        opened.reset(f = std::fopen(path.c_str(), "rb"));
        if (f == nullptr) throw FileError(name, "cannot read: " + cause());
    }
    std::vector<std::uint8_t> bytes;
    std::array<std::uint8_t, 65536> piece{};
    while (const std::size_t n = std::fread(piece.data(), 1, piece.size(), f)) {
        bytes.insert(bytes.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(n));
    }
    if (std::ferror(f) != 0) throw FileError(name, "cannot read: " + cause());
    if (bytes.empty()) throw FileError(name, "is empty");
    return bytes;
}

void write_file(const std::string &path, std::span<const std::uint8_t> bytes) {
    if (path == "-") {
        if (!put(stdout, bytes)) throw FileError(output_name(path), "cannot write: " + cause());
        return;
    }
    OutputFile output(path);
    File f(std::fopen(output.written_as().c_str(), "wb"));
    if (f == nullptr || !put(f.get(), bytes)) throw FileError(path, "cannot write: " + cause());
    if (std::fclose(f.release()) != 0) throw FileError(path, "cannot write: " + cause());
    output.commit();
}

OutputFile::OutputFile(const std::string &path) : path_(path), target_(path), written_as_(path) {
    std::error_code ignored;
    if (fs::is_directory(path, ignored)) throw FileError(path, "cannot write: it is a directory");
    if (fs::is_regular_file(path, ignored)) {
        target_ = fs::canonical(path).string();
    } else if (fs::exists(path, ignored)) {
        return;
    }
    written_as_ = target_ + '.' + std::to_string(getpid()) + ".part";
    const File created(std::fopen(written_as_.c_str(), "wbx"));
    if (created == nullptr) throw FileError(path, "cannot write: " + cause());
    pending_ = true;
}

OutputFile::~OutputFile() {
    if (pending_) std::remove(written_as_.c_str());
}

void OutputFile::commit() {
    if (!pending_) return;
    if (std::rename(written_as_.c_str(), target_.c_str()) != 0) {
        throw FileError(path_, "cannot write: " + cause());
    }
    pending_ = false;
}
