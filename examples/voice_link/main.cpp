// voice_link: speech files over a synchronous voice link.
#include "channel.h"
#include "commands.h"
#include "plot.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>

namespace {

constexpr const char *kSoundIn = "Sound file, any rate and number of channels; - for standard input";

void add_encode(CLI::App &app, EncodeOptions &o) {
    CLI::App *sub = app.add_subcommand("encode", "Encode speech to a CVSD bit stream of 64000 bit/s");
    sub->add_option("IN.wav", o.input, kSoundIn)->required();
    sub->add_option("OUT.cvsd", o.output, "Packets of 30 bytes; - for standard output")->required();
    sub->footer("Example: voice_link encode speech.wav speech.cvsd");
    sub->callback([&o] { encode(o); });
}

void add_decode(CLI::App &app, DecodeOptions &o) {
    CLI::App *sub = app.add_subcommand("decode", "Decode a CVSD bit stream to speech at 8000 Hz");
    sub->add_option("IN.cvsd", o.input, "Bit stream of any length; - for standard input")->required();
    sub->add_option("OUT.wav", o.output, "16-bit mono WAV; - for standard output")->required();
    sub->add_option("--original", o.original, "What was encoded, for the signal-to-noise ratio");
    sub->footer("Example: voice_link decode speech.cvsd decoded.wav --original speech.wav");
    sub->callback([&o] { decode(o); });
}

void add_link(CLI::App &app, LinkOptions &o) {
    CLI::App *sub =
        app.add_subcommand("link", "Send speech over a link that loses frames, conceal the losses");
    sub->option_defaults()->always_capture_default();
    sub->add_option("IN.wav", o.input, kSoundIn)->required();
    sub->add_option("OUT.wav", o.output, "16-bit mono WAV, lined up with the input; - for standard output")
        ->required();
    sub->add_option("--rate", o.rate,
                    "8000: codec, frames of 30 samples; 16000: no codec, frames of 120 samples")
        ->check(CLI::IsMember({8000, 16000}));
    auto *loss = sub->add_option("--loss", o.loss, "Frames lost, percent")->check(CLI::Range(0.0, 100.0));
    auto *burst =
        sub->add_option("--burst", o.burst, "Mean length of a loss, frames")->check(CLI::Range(1.0, 1e6));
    auto *seed = sub->add_option("--seed", o.seed, "Start of the random numbers");
    auto *exact =
        sub->add_flag("--exact", o.exact, "Lose just this share of the frames, and not only in the mean");
    sub->add_option("--pattern", o.pattern, "File of 0 (arrives) and 1 (lost) in place of random losses")
        ->excludes(loss)
        ->excludes(burst)
        ->excludes(seed)
        ->excludes(exact);
    sub->add_option("--conceal", o.conceal,
                    "Lost frames: concealed (on), the last one again (off), silence (mute)")
        ->check(CLI::IsMember({"on", "off", "mute"}));
    auto *plot =
        sub->add_option("--plot", o.plot, "Picture of the waveforms, .svg or .png; needs gnuplot")
            ->check([](const std::string &path) { return can_draw(path) ? "" : "must end in .svg or .png"; });
    sub->add_option("--plot-from", o.plot_from,
                    "Start of the picture, seconds; else it is around a loud loss")
        ->check(CLI::NonNegativeNumber)
        ->needs(plot);
    sub->add_option("--plot-length", o.plot_length, "Length of the picture, seconds")
        ->check(CLI::Range(0.005, 60.0))
        ->needs(plot);
    sub->footer("Example: voice_link link speech.wav heard.wav --rate 16000 --burst 3 --plot heard.svg");
    sub->callback([&o, burst] {
        if (burst->count() == 0) o.burst = std::max(o.burst, smallest_burst(o.loss));
        if (o.pattern.empty() && o.loss < 100 && o.burst < smallest_burst(o.loss)) {
            throw CLI::ValidationError("--burst",
                                       "must be " + std::to_string(smallest_burst(o.loss)) +
                                           " or more for such a loss: bursts are good frames apart");
        }
        link(o);
    });
}

int run(int argc, char **argv) {
    CLI::App app("Speech files over a synchronous voice link: CVSD codec and packet loss concealment",
                 "voice_link");
    app.require_subcommand(1);
    app.failure_message([](const CLI::App *used, const CLI::Error &e) {
        return used->help() + "\nvoice_link: " + e.what() + "\n";
    });
    EncodeOptions encode_options;
    DecodeOptions decode_options;
    LinkOptions link_options;
    add_encode(app, encode_options);
    add_decode(app, decode_options);
    add_link(app, link_options);
    try {
        app.parse(argc, argv); // calls the subcommand
        return 0;
    } catch (const CLI::ParseError &e) {
        return app.exit(e) == 0 ? 0 : 2;
    }
}

} // namespace

int main(int argc, char **argv) {
    std::signal(SIGPIPE, SIG_IGN); // a reader that has gone is a write error, which is reported as such
    try {
        return run(argc, argv);
    } catch (const std::exception &e) {
        std::fprintf(stderr, "voice_link: %s\n", e.what());
        return 1;
    }
}
