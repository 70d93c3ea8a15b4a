// The link as the page runs it, compiled to WebAssembly: speech goes in frame by frame, and what is heard of
// it under four treatments comes out, all with the same delay. The page reads and writes the records below in
// the module's memory, through the addresses that the functions return.
#include "cvsd_qor.h"
#include "examples/voice_link/channel.h"
#include "plc/block.h" // to show the state of the concealment; a product needs the public header alone

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <numbers>

#define EXPORT(name) __attribute__((export_name(#name)))

namespace {

constexpr std::size_t kMaxFrame = 120; // samples
constexpr std::size_t kPacket = 30;    // bytes of a packet, and samples of its speech at 8000 Hz
constexpr std::size_t kRatio = 8;      // of the codec's rate, 64000 Hz, to the speech's
constexpr std::int32_t kNoPitch = 40;  // what the pitch tracker returns where it finds none

using Frame = std::array<std::int16_t, kMaxFrame>;

std::int16_t to_sample(float x) {
    return static_cast<std::int16_t>(std::lrint(std::clamp(x, -32768.0F, 32767.0F)));
}

// A windowed sinc of kSize taps at 64000 Hz: a low-pass filter with this cutoff and gain. Its peak lies
// `early` taps before the middle.
template <std::size_t kSize>
std::array<float, kSize> low_pass(double cutoff_hz, double gain, double early) {
    std::array<float, kSize> taps{};
    const double middle = static_cast<double>(kSize) / 2 - early;
    double sum = 0;
    const auto tap = [&](std::size_t i) {
        const double t = static_cast<double>(i) - middle;
        const double turn = 2 * std::numbers::pi * cutoff_hz / 64000 * t;
        const double window = std::cos(std::numbers::pi * t / (static_cast<double>(kSize) + 2 * early));
        return (turn == 0 ? 1 : std::sin(turn) / turn) * window * window;
    };
    for (std::size_t i = 0; i < kSize; ++i) sum += tap(i);
    for (std::size_t i = 0; i < kSize; ++i) taps[i] = static_cast<float>(gain * tap(i) / sum);
    return taps;
}

// 8000 Hz to 64000 Hz and back. The sender's filter is long; as it lies before the channel, no loss is
// smeared by it. Its delay is one packet less the one sample at 64000 Hz by which a decoded signal is late,
// so that a packet holds exactly one frame of the speech. The receiver's filter reaches over 8 samples of the
// speech, not further than the shortest join at the end of a loss.
class Codec {
public:
    static constexpr std::size_t kSenderDelay = kPacket; // samples of the speech
    static constexpr std::size_t kReceiverDelay = 4;

    Codec() {
        CVSD_ENC_Init(&encoder_);
        CVSD_DEC_Init(&decoder_);
    }
    // Sends a frame of the speech; brings back the frame before it, decoded, unless its packet is lost. The
    // decoder stands still while packets are missing.
    void pass(const Frame &speech, bool lost, Frame &decoded) {
        std::array<std::uint8_t, kPacket> packet{};
        std::array<std::int16_t, kPacket * kRatio> pcm{};
        std::copy_n(sent_.begin() + kPacket, kUp, sent_.begin());
        std::copy_n(speech.begin(), kPacket, sent_.begin() + kUp);
        for (std::size_t i = 0; i < kPacket; ++i) {
            std::array<float, kRatio> sums{};
            for (std::size_t back = 0; back < kUp; ++back) {
                const auto sample = static_cast<float>(sent_[kUp + i - back]);
                for (std::size_t k = 0; k < kRatio; ++k) sums[k] += kUpTaps[back * kRatio + k] * sample;
            }
            std::transform(sums.begin(), sums.end(), pcm.begin() + i * kRatio, to_sample);
        }
        auto samples = static_cast<std::int32_t>(pcm.size());
        auto bytes = static_cast<std::int32_t>(packet.size());
        CVSD_ENC_Process(&encoder_, pcm.data(), &samples, packet.data(), &bytes);

        pcm.fill(0);
        samples = static_cast<std::int32_t>(pcm.size());
        if (!lost) CVSD_DEC_Process(&decoder_, packet.data(), &bytes, pcm.data(), &samples);
        std::copy_n(received_.begin() + pcm.size(), kDown, received_.begin());
        std::copy(pcm.begin(), pcm.end(), received_.begin() + kDown);
        for (std::size_t i = 0; i < kPacket; ++i) {
            float sum = 0;
            for (std::size_t k = 0; k < kDown; ++k) {
                sum += kDownTaps[k] * static_cast<float>(received_[kDown + kRatio * i - k]);
            }
            decoded[i] = to_sample(sum);
        }
    }

private:
    static constexpr std::size_t kUp = 2 * kSenderDelay;              // samples of the speech
    static constexpr std::size_t kDown = 2 * kReceiverDelay * kRatio; // samples at 64000 Hz

    inline static const auto kUpTaps = low_pass<kUp * kRatio>(3700, kRatio, 1);
    inline static const auto kDownTaps = low_pass<kDown>(3400, 1, 0);

    CvsdState encoder_{}, decoder_{};
    std::array<std::int16_t, kUp + kPacket> sent_{};
    std::array<std::int16_t, kDown + kPacket * kRatio> received_{};
};

// Delays a signal: a frame goes in, and the samples that entered `delay` samples before come out.
class Delay {
public:
    static constexpr std::size_t kMost = 64;

    explicit Delay(std::size_t delay) : delay_(delay) {}
    void pass(const Frame &in, std::size_t n, Frame &out) {
        std::copy_n(in.begin(), n, line_.begin() + delay_);
        std::copy_n(line_.begin(), n, out.begin());
        std::copy_n(line_.begin() + n, delay_, line_.begin());
    }

private:
    std::size_t delay_;
    std::array<std::int16_t, kMost + kMaxFrame> line_{};
};

struct Link {
    // In: the next frame of the speech.
    Frame speech{};
    // Out: sent, received with silent gaps, last frame repeated, concealed. All late by delay.
    std::array<Frame, 4> heard{};
    // Out: of the frame that the call concealed or let pass. The number of the lost frame in its burst, from
    // 1, or 0; its gain at its end, Q15; the pitch period that is repeated or was tracked, in samples, 0 for
    // none.
    std::int32_t burst = 0, gain = 0, pitch = 0;

    explicit Link(std::int32_t rate)
        : codec_(rate == 8000 ? std::make_unique<Codec>() : nullptr),
          frame_(rate == 8000 ? kPacket : kMaxFrame) {
        g711plc_construct_v2(&block_, rate);
    }

    std::size_t frame() const { return frame_; }
    std::size_t delay() const { return delay_of_codec() + delay_of_concealment(); }
    // Calls from the one that takes a frame of the speech to the one that conceals it or lets it pass.
    std::size_t ahead() const { return codec_ ? 1 : 0; }

    // Takes a frame. `lost` is the fate of its packet.
    void pass(bool lost) {
        Frame arrived = speech;
        if (codec_) {
            std::swap(lost, next_lost_);
            codec_->pass(speech, lost, arrived);
        }
        auto &[sent, received, repeated, concealed] = heard;
        delay_sent_.pass(speech, frame_, sent);
        if (!lost) last_ = arrived;
        delay_received_.pass(lost ? Frame{} : arrived, frame_, received);
        delay_repeated_.pass(last_, frame_, repeated);
        concealed = arrived;
        (lost ? g711plc_dofe_v2 : g711plc_addtohistory_v2)(&block_, concealed.data());
        look(lost);
    }

private:
    static constexpr std::size_t kCodecDelay = Codec::kSenderDelay + Codec::kReceiverDelay;
    static_assert(kCodecDelay + 30 <= Delay::kMost && 60 <= Delay::kMost);
    std::size_t delay_of_codec() const { return codec_ ? kCodecDelay : 0; }
    std::size_t delay_of_concealment() const { return codec_ ? 30 : 60; }
    void look(bool lost) {
        const cvsd_qor::Block &b = cvsd_qor::unwrap(&block_);
        burst = b.erase_count;
        gain = std::max(32767 - cvsd_qor::kGainPerLoss * std::max(burst - 1, 0), 0);
        const std::int32_t tracked = codec_ ? kNoPitch : b.tracker.tracked_pitch;
        pitch = lost ? b.pitch : tracked == kNoPitch ? 0 : tracked;
    }

    std::unique_ptr<Codec> codec_;
    std::size_t frame_;
    bool next_lost_ = false; // the fate of the packet that is under way
    Frame last_{};           // the last frame that arrived
    Delay delay_sent_{delay()}, delay_received_{delay_of_concealment()},
        delay_repeated_{delay_of_concealment()};
    PlcBlock block_{};
};

} // namespace

extern "C" {

// The rate is 8000, with the codec, or 16000, without.
EXPORT(link_new) Link *link_new(std::int32_t rate) { return new Link(rate); }
EXPORT(link_delete) void link_delete(Link *link) { delete link; }
EXPORT(link_frame) std::size_t link_frame(const Link *link) { return link->frame(); }
EXPORT(link_delay) std::size_t link_delay(const Link *link) { return link->delay(); }
EXPORT(link_ahead) std::size_t link_ahead(const Link *link) { return link->ahead(); }
EXPORT(link_speech) std::int16_t *link_speech(Link *link) { return link->speech.data(); }
EXPORT(link_heard) std::int16_t *link_heard(Link *link, std::size_t treatment) {
    return link->heard[treatment].data();
}
EXPORT(link_state) std::int32_t *link_state(Link *link) { return &link->burst; }
EXPORT(link_pass) void link_pass(Link *link, std::int32_t lost) { link->pass(lost != 0); }

// One byte for each frame, 1 where it is lost; good until the next call.
EXPORT(losses)
std::uint8_t *losses(std::size_t frames, double percent, double mean_burst, std::uint32_t seed) {
    static std::vector<std::uint8_t> bytes;
    const Losses lost = random_losses(frames, percent, mean_burst, seed);
    bytes.assign(lost.begin(), lost.end());
    return bytes.data();
}
}
