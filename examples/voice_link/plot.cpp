#include "plot.h"

#include "gnuplot.h"
#include "stop.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace {

double ms(std::size_t sample, int rate) { return 1000.0 * static_cast<double>(sample) / rate; }

Samples piece(const Store &signal, Stretch view) {
    Samples samples(view.last - view.first);
    signal.read(static_cast<std::int64_t>(view.first), samples);
    return samples;
}

// The parts of the stretches that lie in the view.
std::vector<Stretch> within(Stretch view, std::span<const Stretch> stretches) {
    std::vector<Stretch> met;
    for (const Stretch &s : stretches) {
        const Stretch part{std::max(s.first, view.first), std::min(s.last, view.last)};
        if (part.first < part.last) met.push_back(part);
    }
    return met;
}

// A line for each sample; none is drawn in the holes, which are in order.
void put_samples(std::ostream &script, const Samples &samples, int rate, std::size_t first,
                 std::span<const Stretch> holes) {
    for (std::size_t i = first; i < first + samples.size(); ++i) {
        check_stop();
        while (!holes.empty() && holes.front().last <= i) holes = holes.subspan(1);
        script << ms(i, rate) << ' ';
        if (!holes.empty() && holes.front().first <= i) {
            script << "NaN\n";
        } else {
            script << samples[i - first] << '\n';
        }
    }
}

} // namespace

// The horizontal axis is in milliseconds; all panels have the same scale.
std::string waveforms(std::span<const Panel> panels, int rate, Stretch view,
                      std::span<const Stretch> shaded) {
    const std::vector<Stretch> lost = within(view, shaded);
    int peak = 1;
    for (const Panel &p : panels) {
        for (const int x : piece(p.signal, view)) peak = std::max(peak, std::abs(x));
    }
    std::ostringstream script;
    script.precision(10);
    script << "unset key\nset tics out nomirror\nset lmargin 9\nset tmargin 2\nset bmargin 2\n"
           << "set format y '%.0f'\nset xrange [" << ms(view.first, rate) << ":" << ms(view.last, rate)
           << "]\n"
           << "set yrange [" << -1.05 * peak << ":" << 1.05 * peak << "]\n";
    for (const Stretch &s : lost) {
        script << "set object rectangle from " << ms(s.first, rate) << ", graph 0 to " << ms(s.last, rate)
               << ", graph 1 behind fs solid noborder fc rgb '#f6d5c5'\n";
    }
    script << "set label 1 'shaded: frames that were lost' at screen 0.98, screen 0.975 right "
              "textcolor rgb '#a04010'\n"
           << "set multiplot layout " << panels.size() << ",1\n";
    for (const Panel &p : panels) {
        script << "set title " << quoted(p.title) << " offset 0,-0.6\n$data << end\n";
        put_samples(script, piece(p.signal, view), rate, view.first, p.holes ? lost : std::vector<Stretch>());
        script << "end\n";
        if (&p == &panels.back()) script << "set bmargin 3\nset xlabel 'ms' offset 0,0.5\n";
        script << "plot $data with lines lc rgb '#204a87'\nunset label 1\n";
    }
    script << "unset multiplot\n";
    return script.str();
}
