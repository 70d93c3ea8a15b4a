#include "chain.h"

#include "distance.h"

#include <algorithm>

namespace {

constexpr std::size_t kFlush = 4;    // frames of silence behind the speech, more than any delay
constexpr std::size_t kBlock = 1024; // frames

// A signal that comes late and too long, put into a store lined up.
class LinedUp {
public:
    LinedUp(Store &store, int delay, std::size_t length)
        : store_(store), ahead_(static_cast<std::size_t>(delay)), length_(length) {}
    void append(std::span<const std::int16_t> samples) {
        const std::size_t skipped = std::min(ahead_, samples.size());
        ahead_ -= skipped;
        store_.append(samples.subspan(skipped));
    }
    void finish() { store_.finish(length_); }

private:
    Store &store_;
    std::size_t ahead_, length_;
};

// Encodes the speech and decodes it again with nothing lost.
void over_codec(Sent &sent, Progress &progress, double share) {
    const std::size_t total = (sent.frames + kFlush) * kPacket;
    Sender sender;
    Receiver receiver(Filter::lossy);
    LinedUp decoded(sent.decoded.emplace(), receiver.delay(), sent.speech.size());
    sent.bits.emplace();
    Samples speech, heard;
    Bits bits;
    for (std::size_t at = 0; at < total; at += speech.size()) {
        speech.resize(std::min(kBlock * kPacket, total - at));
        sent.speech.read(static_cast<std::int64_t>(at), speech);
        bits.clear();
        sender.take(speech, bits);
        if (at + speech.size() == total) sender.finish(total, bits);
        sent.bits->append(bits);
        heard.clear();
        receiver.take(bits, heard);
        decoded.append(heard);
        progress.advance(share * static_cast<double>(speech.size()) / static_cast<double>(total));
    }
    sent.bits->finish(total);
    decoded.finish();
    sent.library_seconds = sender.library_seconds() + receiver.library_seconds();
}

// What comes out of the channel, frame after frame: decoded, or the speech itself.
class Arrivals {
public:
    Arrivals(const Sent &sent, WhileLost while_lost)
        : frame_(sent.format.frame), receiver_(Filter::lossy, while_lost), speech_(sent.speech) {
        if (sent.bits) bits_.emplace(*sent.bits);
    }
    int delay() const { return bits_ ? receiver_.delay() : 0; }
    double library_seconds() const { return receiver_.library_seconds(); }
    // What lies in the place of a lost frame is of no account.
    std::span<const std::int16_t> next(std::size_t i, bool lost) {
        const auto first = static_cast<std::int64_t>(i * frame_);
        if (!bits_) return speech_.at(first, frame_);
        decoded_.clear();
        if (lost) {
            receiver_.miss(kPacket, decoded_);
        } else {
            receiver_.take(bits_->at(first, kPacket), decoded_);
        }
        return decoded_;
    }

private:
    std::size_t frame_;
    Receiver receiver_;
    Window speech_;
    std::optional<BitWindow> bits_;
    Samples decoded_;
};

// All treatments of one stream of frames.
class Player {
public:
    explicit Player(const Format &format) : last_(format.frame) {
        g711plc_construct_v2(&block_, format.rate);
    }
    // Appends what is heard of the frame under each treatment.
    void play(std::span<const std::int16_t> frame, bool lost,
              std::array<Samples, kTreatments.size()> &heard) {
        std::int16_t *concealed = append(heard[kConcealed], frame);
        library_.time([&] { (lost ? g711plc_dofe_v2 : g711plc_addtohistory_v2)(&block_, concealed); });
        if (!lost) std::copy(frame.begin(), frame.end(), last_.begin());
        append(heard[kRepeated], last_);
        append(heard[kSilent], lost ? Samples(frame.size()) : last_);
    }
    double library_seconds() const { return library_.seconds(); }

private:
    static std::int16_t *append(Samples &samples, std::span<const std::int16_t> frame) {
        samples.insert(samples.end(), frame.begin(), frame.end());
        return &samples[samples.size() - frame.size()];
    }

    PlcBlock block_;
    Samples last_; // the last frame that arrived, at first silence
    Stopwatch library_;
};

} // namespace

Format format_of(int rate) {
    return rate == kSpeechRate ? Format{rate, kPacket, 30, true} : Format{rate, 120, 60, false};
}

Sent send(const Source &source, int rate, Progress &progress, double share) {
    Sent sent;
    Stopwatch total;
    total.time([&] {
        sent.format = format_of(rate);
        sent.speech = read_speech(source, rate, progress, share / 2);
        sent.frames = (sent.speech.size() + sent.format.frame - 1) / sent.format.frame;
        if (sent.format.codec) over_codec(sent, progress, share / 2);
        sent.power = mean_power(sent.loss_free());
    });
    sent.seconds = total.seconds();
    return sent;
}

Heard receive(const Sent &sent, const Losses &lost, WhileLost while_lost, Progress &progress, double share) {
    Heard heard;
    Stopwatch total;
    total.time([&] {
        Arrivals arrivals(sent, while_lost);
        Player player(sent.format);
        heard.late = arrivals.delay();
        heard.delay = heard.late + sent.format.delay;
        std::vector<LinedUp> lined_up;
        for (Store &signal : heard.signals) {
            const bool concealed = &signal == &heard.signals[kConcealed];
            lined_up.emplace_back(signal, concealed ? heard.delay : heard.late, sent.speech.size());
        }
        std::array<Samples, kTreatments.size()> block;
        const std::size_t frames = lost.size() + kFlush;
        for (std::size_t i = 0; i < frames; ++i) {
            const bool is_lost = i < lost.size() && lost[i];
            player.play(arrivals.next(i, is_lost), is_lost, block);
            if ((i + 1) % kBlock != 0 && i + 1 != frames) continue;
            for (std::size_t k = 0; k < block.size(); ++k) {
                lined_up[k].append(block[k]);
                block[k].clear();
            }
            progress.advance(share / 2 * static_cast<double>(kBlock) / static_cast<double>(frames));
        }
        for (LinedUp &signal : lined_up) signal.finish();
        const std::array<const Store *, kTreatments.size()> copies{&heard.signals[0], &heard.signals[1],
                                                                   &heard.signals[2]};
        heard.distances = spectral_distances(sent.loss_free(), sent.power, copies, sent.format.rate,
                                             {lost, sent.format.frame, static_cast<std::size_t>(heard.late)},
                                             [&](double part) { progress.advance(share / 2 * part); });
        heard.library_seconds = arrivals.library_seconds() + player.library_seconds();
    });
    heard.seconds = total.seconds();
    return heard;
}
