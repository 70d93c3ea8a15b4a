#include "codec_path.h"

#include <algorithm>

// 80 taps at 8000 Hz. The sender's filter lies before the channel, so it cannot mix losses into good speech.
constexpr int kSenderQuality = 5;

constexpr std::uint8_t kIdle = 0xAA; // bits 0 and 1 in turn: encoded silence

Sender::Sender() : up_(kSpeechRate, kCodecRate, kSenderQuality) {
    up_.line_up();
    CVSD_ENC_Init(&encoder_);
}

void Sender::take(std::span<const std::int16_t> speech, Bits &bits) {
    up_.run(speech, pcm_);
    // A decoded sample depends on the bits before its own, so it is one sample late. It is sent one sample
    // early to be aligned.
    if (!begun_ && !pcm_.empty()) {
        pcm_.erase(pcm_.begin());
        begun_ = true;
    }
    const std::size_t old_size = bits.size();
    bits.resize(old_size + pcm_.size() / 8);
    auto samples = static_cast<std::int32_t>(pcm_.size());
    auto bytes = static_cast<std::int32_t>(pcm_.size() / 8);
    library_.time(
        [&] { CVSD_ENC_Process(&encoder_, pcm_.data(), &samples, bits.data() + old_size, &bytes); });
    pcm_.erase(pcm_.begin(), pcm_.end() - samples);
    made_ += static_cast<std::size_t>(bytes);
}

void Sender::finish(std::size_t bytes, Bits &bits) {
    while (made_ < bytes) take(Samples(kPacket, 0), bits);
    bits.resize(bits.size() - (made_ - bytes));
}

Receiver::Receiver(Filter filter, WhileLost while_lost)
    : down_(kCodecRate, kSpeechRate, static_cast<int>(filter)), while_lost_(while_lost) {
    CVSD_DEC_Init(&decoder_);
}

void Receiver::take(std::span<const std::uint8_t> bits, Samples &speech) {
    pcm_.resize(8 * bits.size());
    auto bytes = static_cast<std::int32_t>(bits.size());
    auto samples = static_cast<std::int32_t>(pcm_.size());
    library_.time([&] { CVSD_DEC_Process(&decoder_, bits.data(), &bytes, pcm_.data(), &samples); });
    down_.run(pcm_, speech);
}

void Receiver::miss(int bytes, Samples &speech) {
    const auto count = static_cast<std::size_t>(bytes);
    if (while_lost_ == WhileLost::idle) return take(Bits(count, kIdle), speech);
    pcm_.assign(8 * count, 0);
    down_.run(pcm_, speech);
}
