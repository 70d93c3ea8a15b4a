#include "chain.h"
#include "commands.h"
#include "gnuplot.h"
#include "jobs.h"
#include "outputs.h"
#include "pattern.h"
#include "plot.h"
#include "run.h"

#include <algorithm>
#include <atomic>

namespace {

std::size_t treatment_of(const LinkOptions &o) {
    return o.conceal == "on" ? kConcealed : o.conceal == "off" ? kRepeated : kSilent;
}

// The stretches of lost frames in the aligned signals.
std::vector<Stretch> holes(const Sent &sent, const Losses &lost, int late) {
    std::vector<Stretch> found;
    const auto ahead = static_cast<std::size_t>(late);
    for (std::size_t i = 0; i < lost.size(); ++i) {
        if (!lost[i]) continue;
        const std::size_t first = i * sent.format.frame;
        if (i == 0 || !lost[i - 1]) found.push_back({std::max(first, ahead) - ahead, 0});
        found.back().last = std::min(first + sent.format.frame - ahead, sent.speech.size());
    }
    return found;
}

// The stretch to draw: from where the options say, or around the loss with the most power of the speech in
// it.
Stretch view(const LinkOptions &o, const Sent &sent, const std::vector<Stretch> &lost) {
    const std::size_t size = sent.speech.size();
    const auto length = std::min(static_cast<std::size_t>(o.plot_length * o.rate), size);
    Window window(sent.speech);
    double most = 0;
    std::size_t middle = 0;
    for (const Stretch &s : lost) {
        double power = 0;
        for (std::size_t i = s.first; i < s.last; ++i) {
            const double x = window.at(static_cast<std::int64_t>(i), 1)[0];
            power += x * x;
        }
        if (power > most) middle = (s.first + s.last) / 2;
        most = std::max(most, power);
    }
    std::size_t first = middle - std::min(middle, length / 2);
    if (o.plot_from) first = static_cast<std::size_t>(*o.plot_from * o.rate);
    first = std::min(first, size - length);
    return {first, first + length};
}

std::string picture(const LinkOptions &o, const Sent &sent, const Losses &lost, const Heard &heard) {
    const std::vector<Stretch> shaded = holes(sent, lost, heard.late);
    const std::size_t chosen = treatment_of(o);
    const Panel panels[] = {{"sent", sent.speech},
                            {"received", heard.signals[kSilent], true},
                            {std::string("heard: ") + kTreatments[chosen].name, heard.signals[chosen]}};
    return drawn(o.plot, 900, 560, waveforms(panels, o.rate, view(o, sent, shaded), shaded));
}

// All outputs of a run. They are opened before the long work, so that an output that cannot be written is
// reported at once. All are complete before the first one gets its name.
class Outputs {
public:
    Outputs(const LinkOptions &o, const std::string &output) : wav_(output, o.rate) {
        if (!o.gaps.empty()) gaps_.emplace(o.gaps, o.rate);
        if (!o.plot.empty()) plot_.emplace(o.plot);
        if (!o.write_pattern.empty()) pattern_.emplace(o.write_pattern);
        if (plot_) check_gnuplot(o.plot);
    }
    void write(const LinkOptions &o, const Run &run, const Sent &sent, const Losses &lost,
               const Heard &heard) {
        wav_.write(heard.signals[treatment_of(o)]);
        if (gaps_) gaps_->write(heard.signals[kSilent]);
        if (plot_) plot_->write(picture(o, sent, lost, heard));
        if (pattern_) pattern_->write(pattern_text(lost, asked(run)));
        if (gaps_) gaps_->finish();
        if (plot_) plot_->finish();
        if (pattern_) pattern_->finish();
        wav_.commit();
        if (gaps_) gaps_->commit();
        if (plot_) plot_->commit();
        if (pattern_) pattern_->commit();
    }

private:
    WavFile wav_;
    std::optional<WavFile> gaps_;
    std::optional<OutputFile> plot_, pattern_;
};

Report link_one(const LinkOptions &o, const Task &task, Outputs &outputs, const Losses &pattern,
                const Sent &sent, Progress &progress, double share) {
    const Run run{.input = task.input,
                  .output = task.output,
                  .loss = o.loss,
                  .burst = o.burst,
                  .exact = o.exact,
                  .seed = o.seed + task.run,
                  .while_lost = o.while_lost,
                  .pattern = o.pattern,
                  .pattern_frames = pattern.size()};
    const Losses lost = losses_of(run, pattern, sent.frames);
    Stopwatch total;
    Heard heard;
    total.time([&] {
        heard = receive(sent, lost, o.while_lost, progress, share);
        outputs.write(o, run, sent, lost, heard);
    });
    heard.seconds = total.seconds();
    return report_on("link", run, sent, lost, heard);
}

void check(const LinkOptions &o, const std::vector<Task> &all) {
    check_wav_name(all.front().output);
    const bool extras = !o.gaps.empty() || !o.plot.empty() || !o.write_pattern.empty();
    if (all.size() > 1 && extras) {
        throw UsageError("--gaps, --plot and --write-pattern are for one input and one seed");
    }
    if (!o.gaps.empty()) check_wav_name(o.gaps);
    check_distinct({o.pattern}, all, {o.gaps, o.plot, o.write_pattern});
}

} // namespace

bool link(const LinkOptions &o) {
    const std::vector<Task> all = tasks(o, ".wav", o.seeds, o.seed);
    check(o, all);
    make_folder(o, all);
    const Losses pattern = o.pattern.empty() ? Losses() : read_pattern(o.pattern);
    const std::size_t inputs = all.size() / o.seeds;
    const std::size_t threads = std::max<std::size_t>(o.jobs / std::min<std::size_t>(o.jobs, inputs), 1);
    std::vector<Report> reports(all.size());
    std::atomic<bool> well = true;
    {
        Progress progress(inputs);
        const bool sent_all = each(inputs, o.jobs, [&](std::size_t input) {
            const std::size_t first = input * o.seeds;
            Outputs first_outputs(o, all[first].output);
            const Sent sent = send({all[first].input, o.channel}, o.rate, progress, 0.5);
            const bool heard_all = each(o.seeds, threads, [&](std::size_t i) {
                const Task &task = all[first + i];
                std::optional<Outputs> own;
                Outputs &outputs = i == 0 ? first_outputs : own.emplace(o, task.output);
                reports[first + i] = link_one(o, task, outputs, pattern, sent, progress, 0.5 / o.seeds);
            });
            if (!heard_all) well = false;
        });
        if (!sent_all) well = false;
    }
    print(reports, o.report, o.names.back());
    return well;
}
