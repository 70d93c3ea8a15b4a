#include "run.h"

#include "pattern.h"

namespace {

std::string burst_line(const Tally &t) {
    constexpr std::size_t kMost = 12; // lengths, so that the line stays readable
    std::string line = "bursts: ";
    std::size_t shown = 0;
    for (const auto &[length, count] : t.by_length) {
        if (++shown > kMost) break;
        line += printed("%s%zu of %zu", shown > 1 ? ", " : "", count, length);
    }
    if (shown > kMost)
        line += printed(", .. %zu of %zu", t.by_length.rbegin()->second, t.by_length.rbegin()->first);
    return t.bursts == 0 ? "" : line + "\n";
}

std::string loss_lines(const Run &run, const Tally &t) {
    const std::string met = printed("lost %.1f %%: %zu frames in %zu bursts, %.2f frames on average\n",
                                    t.percent(), t.lost, t.bursts, t.mean_burst());
    if (run.pattern.empty()) {
        return printed("aimed at %g %% in bursts of %g, ", run.loss, run.burst) + met + burst_line(t);
    }
    std::string fit;
    if (run.pattern_frames < t.frames) {
        fit = printed("pattern: %zu frames, begun again to fill %zu\n", run.pattern_frames, t.frames);
    } else if (run.pattern_frames > t.frames) {
        fit = printed("pattern: %zu frames, only the first %zu of them used\n", run.pattern_frames, t.frames);
    }
    return fit + met + burst_line(t);
}

std::string distance_lines(const Heard &heard) {
    if (heard.distances.empty()) return "";
    std::string lines =
        "distance from the loss-free output (log-spectral, Bark bands, 32 ms around lost frames):\n";
    for (std::size_t i = 0; i < kTreatments.size(); ++i) {
        lines += printed("  %-20s %5.2f dB\n", kTreatments[i].name, heard.distances[i]);
    }
    return lines;
}

void put_losses(Record &record, const Run &run, const Tally &t) {
    const bool random = run.pattern.empty();
    record["loss_asked_percent"] = random ? Record(run.loss) : Record();
    record["burst_asked"] = random ? Record(run.burst) : Record();
    record["exact"] = random ? Record(run.exact) : Record();
    record["seed"] = random ? Record(run.seed) : Record();
    record["pattern"] = random ? Record() : Record(run.pattern);
    record["pattern_frames"] = random ? Record() : Record(run.pattern_frames);
    record["frames_lost"] = t.lost;
    record["loss_percent"] = t.percent();
    record["bursts"] = t.bursts;
    record["mean_burst"] = t.mean_burst();
    record["longest_burst"] = t.by_length.empty() ? 0 : t.by_length.rbegin()->first;
}

} // namespace

Losses losses_of(const Run &run, const Losses &pattern, std::size_t frames) {
    if (!pattern.empty()) return fitted(pattern, frames);
    return (run.exact ? exact_losses : random_losses)(frames, run.loss, run.burst, run.seed);
}

const char *name_of(WhileLost way) { return way == WhileLost::hold ? "hold" : "idle"; }

std::string asked(const Run &run) {
    if (!run.pattern.empty()) return "pattern " + input_name(run.pattern);
    return printed("%s%g %% in bursts of %g, seed %u", run.exact ? "exactly " : "", run.loss, run.burst,
                   static_cast<unsigned>(run.seed));
}

Report report_on(const char *command, const Run &run, const Sent &sent, const Losses &lost,
                 const Heard &heard) {
    const Tally t = tally(lost);
    const Format &format = sent.format;
    const double seconds = sent.seconds + heard.seconds;
    const double library_seconds = sent.library_seconds + heard.library_seconds;
    Report report;
    report.record = record_of(command, run.input, run.output);
    report.record["rate_hz"] = format.rate;
    report.record["duration_s"] = sent.duration();
    report.record["frames"] = sent.frames;
    report.record["frame_samples"] = format.frame;
    report.record["while_lost"] = format.codec ? Record(name_of(run.while_lost)) : Record();
    put_losses(report.record, run, t);
    for (std::size_t i = 0; i < kTreatments.size(); ++i) {
        report.record[std::string("distance_") + kTreatments[i].key + "_db"] =
            heard.distances.empty() ? Record() : Record(heard.distances[i]);
    }
    report.record["delay_samples"] = heard.delay;
    report.record["seconds"] = seconds;
    report.record["library_seconds"] = library_seconds;
    report.text = printed("%s: %.3f s at %d Hz, %zu frames of %zu samples\n", output_name(run.output).c_str(),
                          sent.duration(), format.rate, sent.frames, format.frame) +
                  time_line(sent.duration(), seconds, library_seconds) +
                  printed("delay of the receiver: %d samples (%.2f ms), removed\n", heard.delay,
                          1000.0 * heard.delay / format.rate) +
                  loss_lines(run, t) + distance_lines(heard);
    return report;
}
