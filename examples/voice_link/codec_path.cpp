#include "codec_path.h"

#include <algorithm>

// 80 taps at 8000 Hz. The sender's filter lies before the channel: no loss can be smeared by it.
constexpr int kSenderQuality = 5;

constexpr std::uint8_t kIdle = 0xAA; // bits 0 and 1 in turn: what silence is encoded as

std::vector<std::uint8_t> encode_speech(std::span<const std::int16_t> speech) {
    const std::size_t packets = (speech.size() + kPacket - 1) / kPacket;
    Samples padded(speech.begin(), speech.end());
    padded.resize(packets * kPacket);

    CvsdState encoder;
    CVSD_ENC_Init(&encoder);
    std::vector<std::uint8_t> bits(padded.size());
    Samples pcm = convert(padded, kSpeechRate, kCodecRate, kSenderQuality);
    // A decoded sample reflects the bits before it, which makes it one sample late: sent one sample early it
    // lines up.
    pcm.erase(pcm.begin());
    pcm.push_back(0);
    for (std::size_t i = 0; i < padded.size(); i += kPacket) {
        std::int32_t samples = 8 * kPacket;
        std::int32_t bytes = kPacket;
        CVSD_ENC_Process(&encoder, &pcm[8 * i], &samples, &bits[i], &bytes);
    }
    return bits;
}

Receiver::Receiver(Filter filter) : down_(kCodecRate, kSpeechRate, static_cast<int>(filter)) {
    CVSD_DEC_Init(&decoder_);
}

void Receiver::take(std::span<const std::uint8_t> bits, Samples &speech) {
    pcm_.resize(8 * bits.size());
    auto bytes = static_cast<std::int32_t>(bits.size());
    auto samples = static_cast<std::int32_t>(pcm_.size());
    CVSD_DEC_Process(&decoder_, bits.data(), &bytes, pcm_.data(), &samples);
    down_.run(pcm_, speech);
}

void Receiver::miss(int bytes, Samples &speech) {
    take(std::vector<std::uint8_t>(static_cast<std::size_t>(bytes), kIdle), speech);
}

Samples decode_speech(std::span<const std::uint8_t> bits) {
    Receiver receiver(Filter::lossless);
    Samples speech;
    const std::size_t size = bits.size();
    while (!bits.empty()) {
        const auto piece = bits.first(std::min<std::size_t>(bits.size(), 4096));
        receiver.take(piece, speech);
        bits = bits.subspan(piece.size());
    }
    receiver.miss(receiver.delay(), speech);
    speech.erase(speech.begin(), speech.end() - static_cast<std::ptrdiff_t>(size));
    return speech;
}
