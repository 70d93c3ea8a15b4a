// Speech from and to sound files.
#pragma once

#include "progress.h"
#include "store.h"

#include <functional>
#include <span>
#include <string>

struct Source {
    std::string path;
    int channel = 0; // counted from 1; 0 mixes all
};

// Any file that libsndfile reads, brought to the rate. Never empty. Says where the file is shorter than its
// header. Advances progress by the share. Hands on every block as soon as it is there, if that is wanted.
Store read_speech(const Source &source, int rate, Progress &progress, double share,
                  const std::function<void(const Samples &)> &hand_on = nullptr);

// True if a file begins as one of the usual sound files does.
bool is_sound(std::span<const std::uint8_t> head);
// Throw FileError where the name's suffix promises another sound format than WAV, or any for a bit stream.
void check_wav_name(const std::string &path);
void check_stream_name(const std::string &path);

// 16-bit mono WAV, in pieces.
class WavFile {
public:
    WavFile(const std::string &path, int rate);
    ~WavFile();
    void write(std::span<const std::int16_t> samples);
    void write(const Store &signal);
    void finish(); // complete on the disk, but not under its name yet
    void commit();

private:
    struct Open;
    std::unique_ptr<Open> open_;
};
