// Speech from and to sound files.
#pragma once

#include "resampler.h"

#include <string>

// Any file that libsndfile reads: channels mixed down, brought to rate. Never empty.
Samples read_speech(const std::string &path, int rate);

// 16-bit mono WAV.
void write_speech(const std::string &path, std::span<const std::int16_t> speech, int rate);
