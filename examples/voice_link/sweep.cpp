// The curves of distance against loss, over files and seeds.
#include "commands.h"
#include "gnuplot.h"
#include "jobs.h"
#include "run.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <sstream>

namespace {

// One point of the curves, with the distances of its runs with each treatment.
struct Point {
    WhileLost way;
    double burst, loss;
    std::array<std::vector<double>, kTreatments.size()> distances{};
};

struct Spread {
    double median, lower, upper; // half of the values lie between lower and upper
};

Spread spread(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const auto quantile = [&](double part) {
        const double place = part * static_cast<double>(values.size() - 1);
        const auto below = static_cast<std::size_t>(place);
        const std::size_t above = std::min(below + 1, values.size() - 1);
        return std::lerp(values[below], values[above], place - static_cast<double>(below));
    };
    return {quantile(0.5), quantile(0.25), quantile(0.75)};
}

// Makes the default bursts as long as all losses need. If all frames are lost, any length is enough.
void fit_bursts(SweepOptions &o) {
    double needed = 1;
    for (const double loss : o.losses) needed = std::max(needed, loss < 100 ? smallest_burst(loss) : 1);
    for (double &burst : o.bursts) burst = std::max(burst, needed);
    o.bursts.erase(std::unique(o.bursts.begin(), o.bursts.end()), o.bursts.end());
}

std::vector<Point> points_of(const SweepOptions &o) {
    std::vector<Point> points;
    for (const WhileLost way : o.ways) {
        for (const double burst : o.bursts) {
            for (const double loss : o.losses) {
                if (loss < 100 && burst < smallest_burst(loss)) {
                    throw UsageError(
                        printed("--burst: %g %% cannot be lost in bursts of %g, but of %g or more", loss,
                                burst, smallest_burst(loss)));
                }
                points.push_back({way, burst, loss});
            }
        }
    }
    return points;
}

// All runs of one file, in the order of points and seeds.
std::vector<Report> run_all(const SweepOptions &o, const std::string &input, const std::vector<Point> &points,
                            Progress &progress) {
    const Sent sent = send({input, o.channel}, o.rate, progress, 0.1);
    std::vector<Report> reports(points.size() * o.seeds);
    const double share = 0.9 / static_cast<double>(reports.size());
    const bool well = each(reports.size(), o.jobs, [&](std::size_t i) {
        const Point &point = points[i / o.seeds];
        const auto seed = static_cast<std::uint32_t>(o.seed + i % o.seeds);
        const Run run{.input = input,
                      .output = {},
                      .loss = point.loss,
                      .burst = point.burst,
                      .exact = o.exact,
                      .seed = seed,
                      .while_lost = point.way,
                      .pattern = {}};
        const Losses lost = losses_of(run, {}, sent.frames);
        reports[i] = report_on("sweep", run, sent, lost, receive(sent, lost, point.way, progress, share));
    });
    if (!well) throw FileError(input_name(input), "cannot be measured");
    return reports;
}

void collect(const std::vector<Report> &reports, unsigned seeds, std::vector<Point> &points) {
    for (std::size_t i = 0; i < reports.size(); ++i) {
        for (std::size_t k = 0; k < kTreatments.size(); ++k) {
            const Record &value = reports[i].record[std::string("distance_") + kTreatments[k].key + "_db"];
            if (value.is_number()) points[i / seeds].distances[k].push_back(value);
        }
    }
}

// In Markdown: the median and, in brackets, the limits between which half of the runs lie.
std::string table(const SweepOptions &o, const std::vector<Point> &points) {
    const bool ways = o.ways.size() > 1;
    std::string text = ways ? "| while lost | lost | mean burst |" : "| lost | mean burst |";
    for (const Treatment &t : kTreatments) text += std::string(" ") + t.name + " |";
    text += ways ? "\n|---|---|---|" : "\n|---|---|";
    text += "---|---|---|\n";
    for (const Point &point : points) {
        if (point.distances[0].empty()) continue;
        text += ways ? std::string("| ") + name_of(point.way) + " " : "";
        text += printed("| %g %% | %g |", point.loss, point.burst);
        for (const std::vector<double> &values : point.distances) {
            const Spread s = spread(values);
            text += printed(" %.2f dB (%.2f to %.2f) |", s.median, s.lower, s.upper);
        }
        text += "\n";
    }
    return text;
}

// A curve: one treatment with one way. For all ways but the first, only concealment is shown.
struct Curve {
    WhileLost way;
    std::size_t treatment;
    std::string title, style;
};

std::vector<Curve> curves_of(const SweepOptions &o) {
    constexpr std::array<const char *, kTreatments.size()> kColours{"#204a87", "#ce5c00", "#888a85"};
    std::vector<Curve> curves;
    for (const WhileLost way : o.ways) {
        for (std::size_t k = 0; k < kTreatments.size(); ++k) {
            if (way != o.ways.front() && k != kConcealed) continue;
            const std::string dashes = way == o.ways.front() ? "" : " dt 2";
            curves.push_back(
                {way, k, kTreatments[k].name + (o.ways.size() > 1 ? std::string(", ") + name_of(way) : ""),
                 std::string("lc rgb '") + kColours[k] + "'" + dashes});
        }
    }
    return curves;
}

// One panel for each burst length, all on one scale. Each bar spans the middle half of the runs; the bars of
// different curves are shifted a little against each other.
std::string script_of(const SweepOptions &o, const std::vector<Point> &points) {
    const std::vector<Curve> curves = curves_of(o);
    const double widest = std::max(*std::max_element(o.losses.begin(), o.losses.end()), 1.0);
    double highest = 1;
    std::ostringstream panels;
    for (const double burst : o.bursts) {
        std::string plots;
        for (std::size_t c = 0; c < curves.size(); ++c) {
            const Curve &curve = curves[c];
            const std::string name = printed("$curve%zu", c);
            panels << name << " << end\n";
            for (const Point &p : points) {
                const std::vector<double> &values = p.distances[curve.treatment];
                if (p.way != curve.way || p.burst != burst || values.empty()) continue;
                const Spread s = spread(values);
                highest = std::max(highest, s.upper);
                panels << p.loss + static_cast<double>(c) * widest / 150 << ' ' << s.median << ' ' << s.lower
                       << ' ' << s.upper << '\n';
            }
            panels << "end\n";
            plots += (c == 0 ? "plot " : ", ") + name + " with yerrorlines pt 7 ps 0.5 " + curve.style +
                     " title " + quoted(curve.title);
        }
        panels << "set title 'bursts of " << burst << (burst == 1 ? " frame'\n" : " frames in the mean'\n")
               << plots << "\nunset key\nunset ylabel\n";
    }
    std::ostringstream head;
    head
        << "set key top left reverse Left samplen 2\nset tics out nomirror\nset grid ytics lc rgb '#dddddd'\n"
        << "set errorbars 0.5\nset xrange [0:" << 1.05 * widest << "]\nset yrange [0:" << 1.35 * highest
        << "]\nset xlabel 'frames lost, %'\nset ylabel 'distance from the loss-free output, dB'\n"
        << "set multiplot layout 1," << o.bursts.size() << " title 'at " << o.rate << " Hz: median of "
        << o.seeds * (o.names.size() - 1) << " runs, bars hold the middle half'\n";
    return head.str() + panels.str() + "unset multiplot\n";
}

} // namespace

bool sweep(SweepOptions o) {
    if (!o.bursts_set) fit_bursts(o);
    const std::string &target = o.names.back();
    if (!can_draw(target)) throw UsageError(target + " must end in .svg or .png");
    std::vector<Point> points = points_of(o);
    check_gnuplot(target);
    OutputFile picture(target);
    OutputFile figures(std::filesystem::path(target).replace_extension(".csv").string());
    std::vector<Report> reports;
    const std::size_t inputs = o.names.size() - 1;
    {
        Progress progress(inputs);
        for (std::size_t i = 0; i < inputs; ++i) {
            const std::vector<Report> more = run_all(o, o.names[i], points, progress);
            collect(more, o.seeds, points);
            reports.insert(reports.end(), more.begin(), more.end());
        }
    }
    figures.write(csv(reports));
    figures.commit(); // the result of the long work is kept even if the picture fails
    picture.write(drawn(target, 320 * static_cast<int>(o.bursts.size()), 400, script_of(o, points)));
    picture.commit();
    if (o.report == "text") {
        put(table(o, points), stdout);
    } else {
        print(reports, o.report, target);
    }
    return true;
}
