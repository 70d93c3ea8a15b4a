#include "audio.h"

#include "resampler.h"
#include "stop.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <optional>
#include <sndfile.h>
#include <unistd.h>

namespace {

constexpr int kQuality = 8; // for files, where the delay does not matter
constexpr std::size_t kBlock = 8192;

using Handle = std::unique_ptr<SNDFILE, int (*)(SNDFILE *)>;

// Files of floats may contain values that are not finite: they become silence.
std::int16_t to_sample(float x) {
    return std::isfinite(x)
               ? static_cast<std::int16_t>(std::lrint(std::clamp(x * 32768.0F, -32768.0F, 32767.0F)))
               : std::int16_t{0};
}

// The only mark at the start of an MPEG stream is 11 bits that are set, and quiet PCM can have these too.
// Only headers of layers II and III with a bit rate of the table count as MPEG.
bool is_pcm_like_mpeg(std::span<const std::uint8_t> head) {
    if (head.size() < 4 || head[0] != 0xFF || (head[1] & 0xE0) != 0xE0) return false;
    const int version = head[1] >> 3 & 3;
    const int layer = head[1] >> 1 & 3;
    const int bit_rate = head[2] >> 4;
    const int sample_rate = head[2] >> 2 & 3;
    return version == 1 || layer == 0 || layer == 3 || bit_rate == 0 || bit_rate == 15 || sample_rate == 3;
}

std::array<std::uint8_t, 12> head_of(const File &file) {
    std::array<std::uint8_t, 12> head{};
    const off_t at = lseek(fileno(file.get()), 0, SEEK_CUR);
    if (pread(fileno(file.get()), head.data(), head.size(), at) < 4) head = {};
    return head;
}

Handle open_sound(const File &file, const std::string &name, SF_INFO &info) {
    if (is_pcm_like_mpeg(head_of(file))) throw FileError(name, "not a sound file: it has no header");
    Handle handle(sf_open_fd(fileno(file.get()), SFM_READ, &info, SF_FALSE), sf_close);
    if (handle == nullptr) throw FileError(name, std::string("not a sound file: ") + sf_strerror(nullptr));
    return handle;
}

// Frames that the header promises. If a file is too short, libsndfile corrects the count and notes it in its
// log: "data : 180910 (should be 99956)". A program that writes to a pipe does not know the length and writes
// the largest possible one.
double promised_frames(SNDFILE *sound, const SF_INFO &info, double read) {
    std::array<char, 4096> log{};
    sf_command(sound, SFC_GET_LOG_INFO, log.data(), static_cast<int>(log.size()));
    const char *note = std::strstr(log.data(), " (should be ");
    if (note == nullptr) return std::max(read, static_cast<double>(info.frames));
    const double actual = std::strtod(note + std::strlen(" (should be "), nullptr);
    while (note > log.data() && note[-1] >= '0' && note[-1] <= '9') --note;
    const double promised = std::strtod(note, nullptr);
    const bool unknown = promised >= 0xFFFFF000 || (promised >= 0x7FFFF000 && promised <= 0x80001000);
    constexpr double kSlack = 16; // bytes by which writers miscount
    return unknown || promised <= actual + kSlack || actual <= 0 ? read : read * promised / actual;
}

void warn_if_short(SNDFILE *sound, const SF_INFO &info, const std::string &name, sf_count_t read) {
    const double promised = promised_frames(sound, info, static_cast<double>(read));
    if (promised < static_cast<double>(read) + 0.5) return;
    std::array<char, 80> text{};
    const double seconds = static_cast<double>(read) / info.samplerate;
    if (info.frames == SF_COUNT_MAX) {
        std::snprintf(text.data(), text.size(), "its end is missing: %.1f s are there", seconds);
    } else {
        std::snprintf(text.data(), text.size(), "shorter than its header says: %.1f of %.1f s are there",
                      seconds, promised / info.samplerate);
    }
    say("warning: " + name + ": " + text.data());
}

// Converts from a file's rate to another; the output is aligned with the input.
class Converter {
public:
    Converter(int from, int to, const std::string &name) {
        try {
            if (from != to) resampler_.emplace(from, to, kQuality).line_up();
        } catch (const std::runtime_error &e) {
            throw FileError(name, e.what());
        }
    }
    Samples run(Samples samples) {
        if (!resampler_) return samples;
        Samples converted;
        resampler_->run(samples, converted);
        return converted;
    }

private:
    std::optional<Resampler> resampler_;
};

// One channel, or the mean of all, of interleaved frames.
Samples pick(std::span<const float> frames, std::size_t channels, std::size_t channel) {
    Samples samples(frames.size() / channels);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const auto frame = frames.subspan(i * channels, channels);
        samples[i] =
            to_sample(channel > 0 ? frame[channel - 1]
                                  : std::reduce(frame.begin(), frame.end()) / static_cast<float>(channels));
    }
    return samples;
}

} // namespace

Store read_speech(const Source &source, int rate, Progress &progress, double share,
                  const std::function<void(const Samples &)> &hand_on) {
    const std::string name = input_name(source.path);
    const File file = open_seekable(source.path);
    SF_INFO info{};
    const Handle sound = open_sound(file, name, info);
    const auto channels = static_cast<std::size_t>(info.channels);
    const auto channel = static_cast<std::size_t>(source.channel);
    if (channel > channels) {
        throw FileError(name,
                        "has no channel " + std::to_string(channel) + ", only " + std::to_string(channels));
    }
    Converter converter(info.samplerate, rate, name);
    Store speech;
    const auto put = [&](const Samples &samples) {
        speech.append(samples);
        if (hand_on) hand_on(samples);
    };
    std::vector<float> frames(kBlock * channels);
    sf_count_t read = 0;
    while (const sf_count_t n = sf_readf_float(sound.get(), frames.data(), kBlock)) {
        const auto got = std::span(frames).first(static_cast<std::size_t>(n) * channels);
        put(converter.run(pick(got, channels, channel)));
        read += n;
        progress.advance(share * static_cast<double>(n) / static_cast<double>(std::max(info.frames, read)));
    }
    if (sf_error(sound.get()) != SF_ERR_NO_ERROR) throw FileError(name, sf_strerror(sound.get()));
    if (read == 0) throw FileError(name, "holds no sound");
    warn_if_short(sound.get(), info, name, read);
    // The result has the duration of the file: silence pushes the end out of the filter.
    const auto length = static_cast<std::size_t>((read * rate + info.samplerate - 1) / info.samplerate);
    while (speech.size() < length) {
        Samples rest = converter.run(Samples(256, 0));
        rest.resize(std::min(rest.size(), length - speech.size()));
        put(rest);
    }
    speech.finish(length);
    return speech;
}

bool is_sound(std::span<const std::uint8_t> head) {
    const auto begins = [head](const char *mark) {
        return head.size() >= 4 &&
               std::memcmp(head.data(), mark, std::min<std::size_t>(std::strlen(mark), 4)) == 0;
    };
    const auto marks = {"RIFF", "RIFX", "RF64", "riff", "FORM", "fLaC", "OggS", ".snd", "caff", "ID3"};
    return std::any_of(marks.begin(), marks.end(), begins);
}

namespace {

// Only these stand for a format; the 5 in the name run_0.5 does not.
bool is_sound_suffix(const std::string &suffix) {
    const auto sounds = {".wav", ".flac", ".ogg", ".oga", ".opus", ".mp3", ".m4a",
                         ".aif", ".aiff", ".au",  ".snd", ".caf",  ".w64", ".rf64"};
    return std::find(sounds.begin(), sounds.end(), suffix) != sounds.end();
}

} // namespace

void check_wav_name(const std::string &path) {
    const std::string suffix = suffix_of(path);
    if (suffix != ".wav" && is_sound_suffix(suffix)) {
        throw FileError(path, "cannot write: what comes out is WAV, not " + suffix.substr(1));
    }
}

void check_stream_name(const std::string &path) {
    const std::string suffix = suffix_of(path);
    if (is_sound_suffix(suffix)) {
        throw FileError(path, "cannot write: what comes out is a bit stream, not " + suffix.substr(1));
    }
}

struct WavFile::Open {
    std::string path;
    OutputFile output;
    File passing{nullptr, std::fclose}; // temporary, as libsndfile must seek and pipes cannot
    Handle sound{nullptr, sf_close};
    sf_count_t length = 0;

    explicit Open(const std::string &p) : path(p), output(p) {}
    [[noreturn]] void failed() {
        check_stop();
        throw FileError(output_name(path), std::string("cannot write: ") + sf_strerror(sound.get()));
    }
};

WavFile::WavFile(const std::string &path, int rate) {
    check_wav_name(path);
    open_ = std::make_unique<Open>(path);
    if (!open_->output.can_seek()) open_->passing = temporary_file();
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    const int descriptor = open_->passing ? fileno(open_->passing.get()) : open_->output.descriptor();
    open_->sound.reset(sf_open_fd(descriptor, SFM_WRITE, &info, SF_FALSE));
    if (open_->sound == nullptr) open_->failed();
}

WavFile::~WavFile() = default;

void WavFile::write(std::span<const std::int16_t> samples) {
    constexpr sf_count_t kLongest = 0x7FFFFF00; // samples of two bytes that a WAV file can count
    check_stop();
    const auto count = static_cast<sf_count_t>(samples.size());
    if (sf_write_short(open_->sound.get(), samples.data(), count) != count) open_->failed();
    open_->length += count;
    if (open_->length > kLongest) throw FileError(output_name(open_->path), "cannot write: too long for WAV");
}

void WavFile::write(const Store &signal) {
    Samples block;
    for (std::size_t i = 0; i < signal.size(); i += block.size()) {
        block.resize(std::min(signal.size() - i, kBlock));
        signal.read(static_cast<std::int64_t>(i), block);
        write(block);
    }
}

void WavFile::finish() {
    sf_write_sync(open_->sound.get());
    if (sf_close(open_->sound.release()) != 0)
        fail(output_name(open_->path), "cannot write"); // writes the header
    if (open_->passing != nullptr) {
        std::array<std::uint8_t, 65536> block{};
        std::rewind(open_->passing.get());
        while (const std::size_t n = read_block(open_->passing.get(), "temporary file", block)) {
            open_->output.write(std::span(block).first(n));
        }
    }
    open_->output.finish();
}

void WavFile::commit() {
    if (open_->sound != nullptr) finish();
    open_->output.commit();
}
