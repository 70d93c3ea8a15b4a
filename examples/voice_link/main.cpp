// voice_link: speech files over a synchronous voice link.
#include "channel.h"
#include "commands.h"
#include "gnuplot.h"
#include "progress.h"
#include "report.h"
#include "stop.h"

#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr const char *kSoundIn = "IN: sound files of any rate; - for standard input. OUT: ";
constexpr const char *kFolder = "; - for standard output, a folder for several outputs";

const std::map<std::string, WhileLost> kWays{{"hold", WhileLost::hold}, {"idle", WhileLost::idle}};

// CLI::Range accepts NaN.
CLI::Validator within(double least, double most) {
    const std::string range = printed("[%.12g - %.12g]", least, most);
    return {[=](const std::string &text) {
                double x = 0;
                const bool well = CLI::detail::lexical_cast(text, x) && x >= least && x <= most;
                return well ? std::string() : text + " is not in the range " + range;
            },
            "FLOAT in " + range};
}

void add_files(CLI::App *sub, Files &o, const std::string &description) {
    sub->option_defaults()->always_capture_default();
    sub->add_option("FILES", o.names, description)
        ->required()
        ->expected(2, CLI::detail::expected_max_vector_size)
        ->type_name("IN... OUT");
    sub->add_option("--jobs", o.jobs, "Threads, for several inputs or seeds")->check(CLI::Range(1, 256));
    sub->add_option("--report", o.report, "Report as text, json or csv: one record for each input and seed")
        ->check(CLI::IsMember({"text", "json", "csv"}));
}

void add_channel(CLI::App *sub, Files &o) {
    sub->add_option("--channel", o.channel, "Channel of a sound file, counted from 1; 0 mixes all")
        ->check(CLI::Range(0, 1024));
}

CLI::Option *add_rate(CLI::App *sub, LossOptions &o) {
    return sub
        ->add_option("--rate", o.rate,
                     "8000: codec, frames of 30 samples; 16000: no codec, frames of 120 samples")
        ->check(CLI::IsMember({8000, 16000}));
}

CLI::App *add_encode(CLI::App &app, Files &o) {
    CLI::App *sub = app.add_subcommand("encode", "Encode speech to a CVSD bit stream of 64000 bit/s");
    add_files(sub, o, std::string(kSoundIn) + "a bit stream in packets of 30 bytes" + kFolder);
    add_channel(sub, o);
    sub->footer("Example: voice_link encode speech.wav speech.cvsd");
    return sub;
}

CLI::App *add_decode(CLI::App &app, DecodeOptions &o) {
    CLI::App *sub = app.add_subcommand("decode", "Decode a CVSD bit stream to speech at 8000 Hz");
    add_files(sub, o,
              std::string("IN: bit streams of any length; - for standard input. OUT: 16-bit mono WAV") +
                  kFolder);
    add_channel(sub, o);
    sub->add_option("--original", o.original,
                    "The sound file that was encoded, for the signal-to-noise ratio");
    sub->footer("Example: voice_link decode speech.cvsd decoded.wav --original speech.wav");
    return sub;
}

void add_losses(CLI::App *sub, LinkOptions &o) {
    auto *loss = sub->add_option("--loss", o.loss, "Frames lost, percent")->check(within(0, 100));
    auto *burst =
        sub->add_option("--burst", o.burst,
                        "Mean length of a burst of losses, frames; default: 2, or more if --loss needs it")
            ->check(within(1, 1e6));
    auto *seed = sub->add_option("--seed", o.seed, "Seed of the random numbers");
    auto *seeds = sub->add_option("--seeds", o.seeds, "Number of runs, with ascending seeds; OUT is a folder")
                      ->check(CLI::Range(1, 100000));
    auto *exact = sub->add_flag("--exact", o.exact,
                                "Lose exactly this share of the frames in each file, not only on average");
    auto *pattern =
        sub->add_option("--pattern", o.pattern,
                        "File of 0 (arrives) and 1 (lost) instead of random losses; white space and "
                        "commas may stand between them, comments go from # to the line's end. A short "
                        "pattern repeats; a long one is cut.");
    for (auto *option : {loss, burst, seed, seeds, exact}) pattern->excludes(option);
    sub->add_option("--write-pattern", o.write_pattern, "Write the losses to a file of this form");
    sub->add_option("--while-lost", o.while_lost,
                    "The decoder at 8000 Hz while packets are missing: left alone (hold) or fed the idle "
                    "pattern (idle)")
        ->transform(CLI::CheckedTransformer(kWays))
        ->default_str("hold")
        ->type_name("hold|idle")
        ->option_text("hold|idle [hold]");
    sub->parse_complete_callback([&o, burst] {
        const double smallest = smallest_burst(o.loss);
        if (burst->count() == 0) o.burst = std::max(o.burst, smallest);
        if (o.pattern.empty() && o.loss < 100 && o.burst < smallest) {
            throw CLI::ValidationError("--burst",
                                       printed("must be %g or more to lose %g %%: a good frame lies "
                                               "between two bursts",
                                               smallest, o.loss));
        }
    });
}

CLI::App *add_link(CLI::App &app, LinkOptions &o) {
    CLI::App *sub =
        app.add_subcommand("link", "Send speech over a link that loses frames, conceal the losses");
    add_files(sub, o, std::string(kSoundIn) + "16-bit mono WAV, aligned with the input" + kFolder);
    add_channel(sub, o);
    add_rate(sub, o);
    add_losses(sub, o);
    sub->add_option("--conceal", o.conceal,
                    "Lost frames: concealed (on), last frame repeated (off), silence (mute)")
        ->check(CLI::IsMember({"on", "off", "mute"}));
    sub->add_option("--gaps", o.gaps,
                    "Write the received speech as WAV, with silence where frames were lost");
    auto *plot =
        sub->add_option("--plot", o.plot, "Picture of the waveforms, .svg or .png; needs gnuplot")
            ->check([](const std::string &path) { return can_draw(path) ? "" : "must end in .svg or .png"; });
    sub->add_option("--plot-from", o.plot_from, "Start of the picture, seconds; default: around a loud loss")
        ->check(within(0, 1e6))
        ->needs(plot);
    sub->add_option("--plot-length", o.plot_length, "Length of the picture, seconds")
        ->check(within(0.005, 60))
        ->needs(plot);
    sub->footer("Example: voice_link link speech.wav heard.wav --rate 16000 --burst 3 --plot heard.svg");
    return sub;
}

CLI::App *add_sweep(CLI::App &app, SweepOptions &o) {
    CLI::App *sub = app.add_subcommand(
        "sweep",
        "Draw distance against loss over files and seeds; write the figures beside the picture, as .csv");
    add_files(sub, o, std::string(kSoundIn) + "the picture, .svg or .png; needs gnuplot");
    add_channel(sub, o);
    add_rate(sub, o);
    sub->add_option("--loss", o.losses, "Frames lost, percent; 0 is not measured")
        ->delimiter(',')
        ->check(within(0, 100));
    sub->add_option("--burst", o.bursts,
                    "Mean lengths of a burst of losses, frames; the default is raised if --loss needs it")
        ->delimiter(',')
        ->check(within(1, 1e6))
        ->each([&o](const std::string &) { o.bursts_set = true; });
    sub->add_option("--seed", o.seed, "The first seed");
    sub->add_option("--seeds", o.seeds, "Runs for each point, with ascending seeds")
        ->check(CLI::Range(1, 100000));
    sub->add_flag("--exact", o.exact,
                  "Lose exactly this share of the frames in each run, not only on average");
    sub->add_option("--while-lost", o.ways, "The decoder while packets are missing, one or both ways")
        ->delimiter(',')
        ->transform(CLI::CheckedTransformer(kWays))
        ->default_str("hold")
        ->option_text("hold|idle,... [hold]");
    sub->footer(
        "Example: voice_link sweep speech.wav curve.svg --loss 1,2,5,10,20,30 --burst 1,2,5 --seeds 8");
    return sub;
}

int run(int argc, char **argv) {
    CLI::App app("Speech files over a synchronous voice link: CVSD codec and packet loss concealment",
                 "voice_link");
    app.require_subcommand(1);
    app.set_version_flag("--version", "voice_link " + version());
    app.footer(
        "Temporary files go to $TMPDIR or /tmp. They take up to 5.5 times the size of the input samples at "
        "the rate of the link, and three times more for each further job, or 5.5 if it has its own input.");
    app.failure_message([](const CLI::App *used, const CLI::Error &e) {
        return used->help() + "\nvoice_link: " + e.what() + "\n";
    });
    Files encode_options;
    DecodeOptions decode_options;
    LinkOptions link_options;
    SweepOptions sweep_options;
    const CLI::App *encode_command = add_encode(app, encode_options);
    const CLI::App *decode_command = add_decode(app, decode_options);
    const CLI::App *link_command = add_link(app, link_options);
    add_sweep(app, sweep_options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        return app.exit(e) == 0 ? 0 : 2;
    }
    const bool well = encode_command->parsed()   ? encode(encode_options)
                      : decode_command->parsed() ? decode(decode_options)
                      : link_command->parsed()   ? link(link_options)
                                                 : sweep(sweep_options);
    return well ? 0 : 1;
}

// If a standard stream is closed, the next file that is opened gets its number, and so its text. So each
// closed stream is opened for the wrong direction: using it is then an error.
void fill_standard_streams() {
    int opened = 0;
    do {
        const bool input_missing = fcntl(STDIN_FILENO, F_GETFD) < 0;
        opened = open("/dev/null", input_missing ? O_WRONLY : O_RDONLY);
    } while (opened >= 0 && opened <= STDERR_FILENO);
    if (opened > STDERR_FILENO) close(opened);
}

} // namespace

int main(int argc, char **argv) {
    fill_standard_streams();
    catch_signals();
    try {
        return run(argc, argv);
    } catch (const Stopped &) {
        end_by_signal();
    } catch (const UsageError &e) {
        say(e.what());
        return 2;
    } catch (const std::exception &e) {
        say(e.what());
        return 1;
    }
}
