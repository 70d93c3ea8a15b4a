#include "audio.h"

#include "file.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <sndfile.h>

namespace {

constexpr int kQuality = 8; // for files, where delay is of no account

// A sound file open in a temporary file: libsndfile wants to seek, which pipes cannot.
class Sound {
public:
    Sound(std::span<const std::uint8_t> bytes, int mode, SF_INFO &info) : file_(std::tmpfile(), std::fclose) {
        if (file_ == nullptr) throw std::runtime_error("cannot make a temporary file");
        if (!bytes.empty() && std::fwrite(bytes.data(), bytes.size(), 1, file_.get()) != 1) {
            throw std::runtime_error("cannot write a temporary file");
        }
        std::rewind(file_.get());
        handle_.reset(sf_open_fd(fileno(file_.get()), mode, &info, SF_FALSE));
    }
    SNDFILE *get() const { return handle_.get(); }
    // The finished file; nothing can be read or written afterwards.
    std::vector<std::uint8_t> close() {
        handle_.reset(); // completes the header
        std::fseek(file_.get(), 0, SEEK_END);
        std::vector<std::uint8_t> bytes(static_cast<std::size_t>(std::ftell(file_.get())));
        std::rewind(file_.get());
        bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file_.get()));
        return bytes;
    }

private:
    std::unique_ptr<std::FILE, int (*)(std::FILE *)> file_;
    std::unique_ptr<SNDFILE, int (*)(SNDFILE *)> handle_{nullptr, sf_close};
};

// Float files may hold anything: what is no number becomes silence.
std::int16_t to_sample(float x) {
    return std::isfinite(x)
               ? static_cast<std::int16_t>(std::lrint(std::clamp(x * 32768.0F, -32768.0F, 32767.0F)))
               : std::int16_t{0};
}

} // namespace

Samples read_speech(const std::string &path, int rate) {
    SF_INFO info{};
    const Sound sound(read_file(path), SFM_READ, info);
    if (sound.get() == nullptr) {
        throw FileError(input_name(path), std::string("not a sound file: ") + sf_strerror(nullptr));
    }
    const auto channels = static_cast<std::size_t>(info.channels);
    std::vector<float> frame(channels);
    Samples mixed;
    while (sf_readf_float(sound.get(), frame.data(), 1) == 1) {
        mixed.push_back(to_sample(std::reduce(frame.begin(), frame.end()) / static_cast<float>(channels)));
    }
    if (mixed.empty()) throw FileError(input_name(path), "holds no sound");
    try {
        return convert(mixed, info.samplerate, rate, kQuality);
    } catch (const std::runtime_error &e) {
        throw FileError(input_name(path), e.what());
    }
}

void write_speech(const std::string &path, std::span<const std::int16_t> speech, int rate) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    Sound sound({}, SFM_WRITE, info);
    const auto count = static_cast<sf_count_t>(speech.size());
    if (sound.get() == nullptr || sf_write_short(sound.get(), speech.data(), count) != count) {
        throw FileError(output_name(path), std::string("cannot write: ") + sf_strerror(sound.get()));
    }
    write_file(path, sound.close());
}
