#include "audio.h"
#include "channel.h"
#include "codec_path.h"
#include "commands.h"
#include "distance.h"
#include "file.h"
#include "pattern.h"
#include "plot.h"

#include <algorithm>
#include <map>

namespace {

constexpr std::size_t kFlush = 4; // frames of silence behind the speech, more than any delay

struct Format {
    int rate;
    std::size_t frame; // samples
    int delay;         // of the concealment, samples
};

Format format_of(int rate) { return rate == kSpeechRate ? Format{rate, kPacket, 30} : Format{rate, 120, 60}; }

struct Burst {
    std::size_t first, length; // frames
};

std::vector<Burst> bursts(const Losses &lost) {
    std::vector<Burst> found;
    for (std::size_t i = 0; i < lost.size(); ++i) {
        if (!lost[i]) continue;
        if (i == 0 || !lost[i - 1]) found.push_back({i, 0});
        ++found.back().length;
    }
    return found;
}

// A signal that lags behind the speech that was sent.
struct Late {
    Samples signal;
    int delay = 0; // samples
};

Samples lined_up(Late late, std::size_t length) {
    late.signal.erase(late.signal.begin(), late.signal.begin() + late.delay);
    late.signal.resize(length);
    return late.signal;
}

// What comes out of the decoder, frames back to back; at 16000 Hz there is none.
Late receive(std::span<const std::int16_t> sent, const Format &format, const Losses &lost) {
    if (format.rate != kSpeechRate) return {{sent.begin(), sent.end()}, 0};
    const std::vector<std::uint8_t> bits = encode_speech(sent);
    Receiver receiver(Filter::lossy);
    Samples speech;
    for (std::size_t i = 0; i < lost.size(); ++i) {
        if (lost[i]) {
            receiver.miss(kPacket, speech);
        } else {
            receiver.take(std::span(bits).subspan(i * kPacket, kPacket), speech);
        }
    }
    return {speech, receiver.delay()};
}

Late play(Late received, const Format &format, const Losses &lost, const std::string &conceal) {
    PlcBlock block;
    g711plc_construct_v2(&block, format.rate);
    for (std::size_t i = 0; i < lost.size(); ++i) {
        std::int16_t *frame = &received.signal[i * format.frame];
        if (conceal == "on") {
            (lost[i] ? g711plc_dofe_v2 : g711plc_addtohistory_v2)(&block, frame);
        } else if (lost[i] && conceal == "off" && i > 0) {
            std::copy_n(frame - format.frame, format.frame, frame);
        } else if (lost[i]) {
            std::fill_n(frame, format.frame, std::int16_t{0});
        }
    }
    if (conceal == "on") received.delay += format.delay;
    return received;
}

const char *name_of(const std::string &conceal) {
    return conceal == "on" ? "concealed" : conceal == "off" ? "last frame repeated" : "silence";
}

void report_losses(std::FILE *to, std::span<const Burst> found, std::size_t frames) {
    std::map<std::size_t, std::size_t> by_length;
    std::size_t lost = 0;
    for (const Burst &burst : found) {
        lost += burst.length;
        ++by_length[burst.length];
    }
    std::fprintf(to, "lost: %zu frames (%.1f %%) in %zu bursts", lost,
                 100 * static_cast<double>(lost) / static_cast<double>(frames), found.size());
    const char *before = ": ";
    for (const auto &[length, count] : by_length) {
        std::fprintf(to, "%s%zu of %zu", before, count, length);
        before = ", ";
    }
    std::fprintf(to, "\n");
}

// The middles of the lost frames and of those beside them.
std::vector<std::size_t> around(const std::vector<Stretch> &lost, std::size_t frame, std::size_t end) {
    std::vector<std::size_t> middles;
    for (const Stretch &s : lost) {
        for (std::size_t i = s.first < frame ? s.first : s.first - frame; i < s.last + frame; i += frame) {
            const std::size_t middle = i + frame / 2;
            if (middle < end && (middles.empty() || middle > middles.back())) middles.push_back(middle);
        }
    }
    return middles;
}

// What to look at: from where the options say, or around the burst that hides most of the speech's power.
Stretch view(const LinkOptions &options, std::span<const std::int16_t> speech,
             const std::vector<Stretch> &lost) {
    const auto length = std::min(static_cast<std::size_t>(options.plot_length * options.rate), speech.size());
    double most = 0;
    std::size_t middle = 0;
    for (const Stretch &s : lost) {
        double power = 0;
        for (std::size_t i = s.first; i < std::min(s.last, speech.size()); ++i)
            power += speech[i] * speech[i];
        if (power > most) middle = (s.first + s.last) / 2;
        most = std::max(most, power);
    }
    std::size_t first = middle - std::min(middle, length / 2);
    if (options.plot_from) first = static_cast<std::size_t>(std::min(*options.plot_from, 1e6) * options.rate);
    first = std::min(first, speech.size() - length);
    return {first, first + length};
}

Losses losses(const LinkOptions &o, std::size_t frames) {
    if (!o.pattern.empty()) return fitted(read_pattern(o.pattern), frames);
    return (o.exact ? exact_losses : random_losses)(frames, o.loss, o.burst, o.seed);
}

} // namespace

void link(const LinkOptions &options) {
    const Format format = format_of(options.rate);
    Samples speech = read_speech(options.input, format.rate);
    const std::size_t length = speech.size();
    const std::size_t frames = (length + format.frame - 1) / format.frame;
    Losses lost = losses(options, frames);
    const std::vector<Burst> found = bursts(lost);
    lost.resize(frames + kFlush);
    speech.resize(lost.size() * format.frame);

    Late received, played;
    const double elapsed = timed([&] {
        received = receive(speech, format, lost);
        played = play(received, format, lost, options.conceal);
    });
    const Samples loss_free = lined_up(receive(speech, format, Losses(lost.size())), length);
    const Samples heard = lined_up(played, length);
    speech.resize(length);

    std::vector<Stretch> holes; // the lost frames' places in the signals lined up
    for (const Burst &burst : found) {
        const auto late = static_cast<std::size_t>(received.delay);
        const std::size_t first = burst.first * format.frame;
        holes.push_back({std::max(first, late) - late, first + burst.length * format.frame - late});
    }
    if (!options.plot.empty()) {
        const Samples gaps = lined_up(received, length);
        const Panel panels[] = {{"input", speech},
                                {"received", gaps, true},
                                {std::string("heard: ") + name_of(options.conceal), heard}};
        draw(options.plot, panels, format.rate, view(options, speech, holes), holes);
    }
    write_speech(options.output, heard, format.rate);

    std::FILE *to = messages(options.output);
    const double duration = static_cast<double>(length) / format.rate;
    std::fprintf(to, "%s: %.3f s at %d Hz, %zu frames of %zu samples, %.0f times real time\n",
                 output_name(options.output).c_str(), duration, format.rate, frames, format.frame,
                 duration / elapsed);
    std::fprintf(to, "delay of the receiver: %d samples (%.2f ms), taken off\n", played.delay,
                 1000.0 * played.delay / format.rate);
    report_losses(to, found, frames);
    const std::vector<std::size_t> middles = around(holes, format.frame, length);
    if (middles.empty()) return;
    std::fprintf(
        to, "distance from the loss-free output (log-spectral, Bark bands, 32 ms around lost frames):\n");
    for (const char *conceal : {"on", "mute", "off"}) {
        const Samples other = lined_up(play(received, format, lost, conceal), length);
        std::fprintf(to, "  %-20s %5.2f dB\n", name_of(conceal),
                     spectral_distance(loss_free, other, format.rate, middles));
    }
}
