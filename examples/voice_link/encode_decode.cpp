#include "audio.h"
#include "codec_path.h"
#include "commands.h"
#include "distance.h"
#include "file.h"

#include <cmath>

namespace {

void report(const std::string &output, std::size_t bytes, double elapsed) {
    const double duration = static_cast<double>(bytes) / kSpeechRate;
    std::fprintf(messages(output), "%s: %.3f s in %zu packets of %d bytes, %d bit/s, %.0f times real time\n",
                 output_name(output).c_str(), duration, (bytes + kPacket - 1) / kPacket, kPacket, kCodecRate,
                 duration / elapsed);
}

void report_snr(const std::string &output, const Samples &speech, const Samples &decoded) {
    const double ratio = snr(speech, decoded);
    std::fprintf(messages(output), "signal-to-noise ratio of the decoded speech against the input: ");
    std::fprintf(messages(output), std::isfinite(ratio) ? "%.2f dB\n" : "none, the input is silent\n", ratio);
}

} // namespace

void encode(const EncodeOptions &options) {
    const Samples speech = read_speech(options.input, kSpeechRate);
    std::vector<std::uint8_t> bits;
    const double elapsed = timed([&] { bits = encode_speech(speech); });
    write_file(options.output, bits);
    report(options.output, bits.size(), elapsed);
    report_snr(options.output, speech, decode_speech(bits));
}

void decode(const DecodeOptions &options) {
    const std::vector<std::uint8_t> bits = read_file(options.input);
    Samples original;
    if (!options.original.empty()) original = read_speech(options.original, kSpeechRate);
    Samples speech;
    const double elapsed = timed([&] { speech = decode_speech(bits); });
    write_speech(options.output, speech, kSpeechRate);
    report(options.output, bits.size(), elapsed);
    if (!original.empty()) report_snr(options.output, original, speech);
}
