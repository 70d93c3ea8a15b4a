#include "plot.h"

#include "gnuplot.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace {

Samples piece(const Store &signal, Stretch view) {
    Samples samples(view.last - view.first);
    signal.read(static_cast<std::int64_t>(view.first), samples);
    return samples;
}

} // namespace

// Everything is drawn over milliseconds; all panels share one scale.
std::string waveforms(std::span<const Panel> panels, int rate, Stretch view,
                      std::span<const Stretch> shaded) {
    const auto ms = [rate](std::size_t sample) { return 1000.0 * static_cast<double>(sample) / rate; };
    int peak = 1;
    for (const Panel &p : panels) {
        for (const int x : piece(p.signal, view)) peak = std::max(peak, std::abs(x));
    }
    std::ostringstream script;
    script.precision(10);
    script << "unset key\nset tics out nomirror\nset lmargin 9\nset tmargin 2\nset bmargin 2\n"
           << "set format y '%.0f'\nset xrange [" << ms(view.first) << ":" << ms(view.last) << "]\n"
           << "set yrange [" << -1.05 * peak << ":" << 1.05 * peak << "]\n";
    for (const Stretch &s : shaded) {
        const std::size_t first = std::max(s.first, view.first);
        const std::size_t last = std::min(s.last, view.last);
        if (first >= last) continue;
        script << "set object rectangle from " << ms(first) << ", graph 0 to " << ms(last)
               << ", graph 1 behind fs solid noborder fc rgb '#f6d5c5'\n";
    }
    script << "set label 1 'shaded: frames that were lost' at screen 0.98, screen 0.975 right "
              "textcolor rgb '#a04010'\n"
           << "set multiplot layout " << panels.size() << ",1\n";
    for (const Panel &p : panels) {
        script << "set title " << quoted(p.title) << " offset 0,-0.6\n$data << end\n";
        const Samples samples = piece(p.signal, view);
        for (std::size_t i = view.first; i < view.last; ++i) {
            const auto covers = [i](const Stretch &s) { return s.first <= i && i < s.last; };
            script << ms(i) << ' ';
            if (p.holes && std::any_of(shaded.begin(), shaded.end(), covers)) {
                script << "NaN\n";
            } else {
                script << samples[i - view.first] << '\n';
            }
        }
        script << "end\n";
        if (&p == &panels.back()) script << "set bmargin 3\nset xlabel 'ms' offset 0,0.5\n";
        script << "plot $data with lines lc rgb '#204a87'\nunset label 1\n";
    }
    script << "unset multiplot\n";
    return script.str();
}
