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

// Reads any file that libsndfile reads, and converts it to the rate. The result is never empty. Warns if the
// file is shorter than its header says. Advances progress by share in all. Passes each block to hand_on, if
// set, as soon as it is ready.
Store read_speech(const Source &source, int rate, Progress &progress, double share,
                  const std::function<void(const Samples &)> &hand_on = nullptr);

// Whether a file begins like one of the usual sound files.
bool is_sound(std::span<const std::uint8_t> head);
// Throw FileError if the name's suffix stands for a sound format: check_wav_name for any but WAV,
// check_stream_name for any.
void check_wav_name(const std::string &path);
void check_stream_name(const std::string &path);

// A 16-bit mono WAV file, written in pieces.
class WavFile {
public:
    WavFile(const std::string &path, int rate);
    ~WavFile();
    void write(std::span<const std::int16_t> samples);
    void write(const Store &signal);
    void finish(); // complete on the disk, but still under the temporary name
    void commit();

private:
    struct Open;
    std::unique_ptr<Open> open_;
};
