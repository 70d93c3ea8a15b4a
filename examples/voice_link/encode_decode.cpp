#include "audio.h"
#include "codec_path.h"
#include "commands.h"
#include "distance.h"
#include "outputs.h"
#include "run_tasks.h"
#include "worker.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace {

constexpr std::size_t kBlock = 1024 * kPacket; // bytes, and samples of speech

// Decodes a whole stream; the output is aligned with the speech that was encoded.
class Decoding {
public:
    // Appends the decoded speech.
    void take(std::span<const std::uint8_t> bits, Samples &speech) {
        const std::size_t old_size = speech.size();
        receiver_.take(bits, speech);
        const auto made = static_cast<std::ptrdiff_t>(std::min(ahead_, speech.size() - old_size));
        const auto begin = speech.begin() + static_cast<std::ptrdiff_t>(old_size);
        speech.erase(begin, begin + made);
        ahead_ -= static_cast<std::size_t>(made);
    }
    void finish(Samples &speech) { receiver_.miss(receiver_.delay(), speech); }
    double library_seconds() const { return receiver_.library_seconds(); }

private:
    Receiver receiver_{Filter::lossless, WhileLost::idle};
    std::size_t ahead_ = static_cast<std::size_t>(receiver_.delay());
};

struct Figures {
    std::size_t bytes = 0;
    double seconds = 0, library_seconds = 0;
    std::optional<double> snr;
};

Report report(const char *command, const Task &task, const Figures &f) {
    const double duration = static_cast<double>(f.bytes) / kSpeechRate;
    const std::size_t packets = (f.bytes + kPacket - 1) / kPacket;
    Report report;
    report.record = record_of(command, task.input, task.output);
    report.record["duration_s"] = duration;
    report.record["packets"] = packets;
    report.record["seconds"] = f.seconds;
    report.record["library_seconds"] = f.library_seconds;
    report.record["snr_db"] = f.snr && std::isfinite(*f.snr) ? Record(*f.snr) : Record();
    report.text = printed("%s: %.3f s in %zu packets of %d bytes, %d bit/s\n",
                          output_name(task.output).c_str(), duration, packets, kPacket, kCodecRate) +
                  time_line(duration, f.seconds, f.library_seconds);
    if (f.snr) {
        report.text += "signal-to-noise ratio of the decoded speech against the input: " +
                       (std::isfinite(*f.snr) ? printed("%.2f dB\n", *f.snr) : "none, the input is silent\n");
    }
    return report;
}

// Encodes, and decodes the result again to measure how near it is to the input.
class Encoding {
public:
    explicit Encoding(OutputFile &output) : output_(output) {}
    void take(std::span<const std::int16_t> speech) {
        sender_.take(speech, bits_);
        pass_on();
    }
    Figures finish(const Store &speech) {
        Figures figures;
        figures.bytes = (speech.size() + kPacket - 1) / kPacket * kPacket;
        sender_.finish(figures.bytes, bits_);
        pass_on();
        decoding_.finish(heard_);
        decoded_.append(heard_);
        decoded_.finish(figures.bytes);
        figures.snr = snr(speech, decoded_);
        figures.library_seconds = sender_.library_seconds() + decoding_.library_seconds();
        return figures;
    }

private:
    void pass_on() {
        output_.write(bits_);
        decoding_.take(bits_, heard_);
        decoded_.append(heard_);
        bits_.clear();
        heard_.clear();
    }

    OutputFile &output_;
    Sender sender_;
    Decoding decoding_;
    Store decoded_;
    Bits bits_;
    Samples heard_;
};

Report encode_one(const Files &options, const Task &task, Progress &progress) {
    Figures figures;
    Stopwatch total;
    total.time([&] {
        OutputFile output(task.output);
        Encoding encoding(output);
        Worker worker([&](const Samples &block) { encoding.take(block); });
        const Store speech = read_speech({task.input, options.channel}, kSpeechRate, progress, 1,
                                         [&](const Samples &block) { worker.push(block); });
        worker.finish();
        figures = encoding.finish(speech);
        output.commit();
    });
    figures.seconds = total.seconds();
    return report("encode", task, figures);
}

// Decodes to a WAV file and, for the comparison, to a store.
Figures decode_bits(const Task &task, WavFile &output, Store *copy, Progress &progress) {
    const std::string name = input_name(task.input);
    const File input = open_input(task.input);
    const double size = file_size(input);
    Figures figures;
    Decoding decoding;
    Bits bits(kBlock);
    Samples speech;
    const auto put = [&] {
        output.write(speech);
        if (copy != nullptr) copy->append(speech);
        speech.clear();
    };
    while (const std::size_t n = read_block(input.get(), task.input, bits)) {
        const auto piece = std::span(bits).first(n);
        if (figures.bytes == 0 && is_sound(piece))
            throw FileError(name, "not a bit stream, but a sound file");
        figures.bytes += n;
        decoding.take(piece, speech);
        put();
        progress.advance(size > 0 ? static_cast<double>(n) / size : 0);
    }
    if (figures.bytes == 0) throw FileError(name, "is empty");
    decoding.finish(speech);
    put();
    figures.library_seconds = decoding.library_seconds();
    return figures;
}

Report decode_one(const DecodeOptions &options, const Task &task, Progress &progress) {
    Figures figures;
    Stopwatch total;
    total.time([&] {
        std::optional<Store> original, copy;
        if (!options.original.empty()) {
            original = read_speech({options.original, options.channel}, kSpeechRate, progress, 0);
            copy.emplace();
        }
        WavFile output(task.output, kSpeechRate);
        figures = decode_bits(task, output, copy ? &*copy : nullptr, progress);
        if (copy) {
            copy->finish(copy->size());
            figures.snr = snr(*original, *copy);
        }
        output.commit();
    });
    figures.seconds = total.seconds();
    return report("decode", task, figures);
}

} // namespace

bool encode(const Files &options) {
    const std::vector<Task> all = tasks(options, ".cvsd");
    check_stream_name(all.front().output);
    check_distinct({}, all, {});
    make_folder(options, all);
    return run_tasks(options, all, encode_one);
}

bool decode(const DecodeOptions &options) {
    const std::vector<Task> all = tasks(options, ".wav");
    if (all.size() > 1 && !options.original.empty()) throw UsageError("--original is for one input");
    check_distinct({options.original}, all, {});
    make_folder(options, all);
    return run_tasks(options, all, decode_one);
}
