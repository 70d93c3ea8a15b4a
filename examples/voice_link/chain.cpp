#include "chain.h"

#include "distance.h"
#include "worker.h"

#include <algorithm>

namespace {

constexpr std::size_t kFlush = 4;    // frames of silence after the speech, more than any delay
constexpr std::size_t kBlock = 1024; // frames

// Puts a delayed signal into a store without its first samples, so that it is aligned.
class LinedUp {
public:
    LinedUp(Store &store, int delay) : store_(store), ahead_(static_cast<std::size_t>(delay)) {}
    void append(std::span<const std::int16_t> samples) {
        const std::size_t skipped = std::min(ahead_, samples.size());
        ahead_ -= skipped;
        store_.append(samples.subspan(skipped));
    }

private:
    Store &store_;
    std::size_t ahead_;
};

// Encodes the speech and decodes it again with nothing lost.
class Coding {
public:
    explicit Coding(Sent &sent) : bits_(sent.bits.emplace()), decoded_(sent.decoded.emplace()) {}
    void take(std::span<const std::int16_t> speech) {
        sender_.take(speech, packets_);
        pass_on();
    }
    // Ends the speech with silence, so that size samples are sent in all.
    void finish(std::size_t size, std::size_t length) {
        sender_.finish(size, packets_);
        pass_on();
        bits_.finish(size);
        decoded_.finish(length);
    }
    double library_seconds() const { return sender_.library_seconds() + receiver_.library_seconds(); }

private:
    void pass_on() {
        bits_.append(packets_);
        heard_.clear();
        receiver_.take(packets_, heard_);
        lined_up_.append(heard_);
        packets_.clear();
    }

    BitStore &bits_;
    Store &decoded_;
    Sender sender_;
    Receiver receiver_{Filter::lossy};
    LinedUp lined_up_{decoded_, receiver_.delay()};
    Bits packets_;
    Samples heard_;
};

// What comes out of the channel, frame after frame: decoded, or the speech itself.
class Arrivals {
public:
    Arrivals(const Sent &sent, WhileLost while_lost)
        : frame_(sent.format.frame), receiver_(Filter::lossy, while_lost), speech_(sent.speech) {
        if (sent.bits) bits_.emplace(*sent.bits);
    }
    int delay() const { return bits_ ? receiver_.delay() : 0; }
    double library_seconds() const { return receiver_.library_seconds(); }
    // For a lost frame the samples do not matter.
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
    // Appends what is heard of the frame with each treatment.
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
    Samples last_; // the last frame that arrived; silence before the first
    Stopwatch library_;
};

std::size_t frames_of(const Sent &sent) {
    return (sent.speech.size() + sent.format.frame - 1) / sent.format.frame;
}

// Plays all frames with all treatments. Each signal goes into its store, aligned.
void play(const Sent &sent, const Losses &lost, WhileLost while_lost, Heard &heard, Progress &progress,
          double share) {
    Arrivals arrivals(sent, while_lost);
    Player player(sent.format);
    heard.late = arrivals.delay();
    heard.delay = heard.late + sent.format.delay;
    std::vector<LinedUp> lined_up;
    for (Store &signal : heard.signals) {
        lined_up.emplace_back(signal, &signal == &heard.signals[kConcealed] ? heard.delay : heard.late);
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
        progress.advance(share * static_cast<double>(kBlock) / static_cast<double>(frames));
    }
    for (Store &signal : heard.signals) signal.finish(sent.speech.size());
    heard.library_seconds = arrivals.library_seconds() + player.library_seconds();
}

} // namespace

Format format_of(int rate) {
    return rate == kSpeechRate ? Format{rate, kPacket, 30, true} : Format{rate, 120, 60, false};
}

Sent send(const Source &source, int rate, Progress &progress, double share) {
    Sent sent;
    Stopwatch total;
    total.time([&] {
        sent.format = format_of(rate);
        if (sent.format.codec) {
            Coding coding(sent);
            Worker worker([&](const Samples &block) { coding.take(block); });
            sent.speech =
                read_speech(source, rate, progress, share, [&](const Samples &block) { worker.push(block); });
            worker.finish();
            sent.frames = frames_of(sent);
            coding.finish((sent.frames + kFlush) * sent.format.frame, sent.speech.size());
            sent.library_seconds = coding.library_seconds();
        } else {
            sent.speech = read_speech(source, rate, progress, share);
            sent.frames = frames_of(sent);
        }
        sent.power = mean_power(sent.loss_free());
    });
    sent.seconds = total.seconds();
    return sent;
}

Heard receive(const Sent &sent, const Losses &lost, WhileLost while_lost, Progress &progress, double share) {
    Heard heard;
    Stopwatch total;
    total.time([&] {
        play(sent, lost, while_lost, heard, progress, share / 2);
        std::array<const Store *, kTreatments.size()> copies{};
        for (std::size_t k = 0; k < copies.size(); ++k) copies[k] = &heard.signals[k];
        heard.distances = spectral_distances(sent.loss_free(), sent.power, copies, sent.format.rate,
                                             {lost, sent.format.frame, static_cast<std::size_t>(heard.late)},
                                             [&](double part) { progress.advance(share / 2 * part); });
    });
    heard.seconds = total.seconds();
    return heard;
}
