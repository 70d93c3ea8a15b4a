#include "plot.h"

#include "file.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sys/wait.h>

namespace {

std::string quoted(const std::string &text) {
    std::string result;
    for (const char c : text) result += c == '\'' ? "''" : std::string(1, c);
    return "'" + result + "'";
}

// Everything is drawn over milliseconds; all panels share one scale.
void write_script(std::FILE *to, const std::string &output, bool svg, std::span<const Panel> panels, int rate,
                  Stretch view, std::span<const Stretch> shaded) {
    const auto ms = [rate](std::size_t sample) { return 1000.0 * static_cast<double>(sample) / rate; };
    int peak = 1;
    for (const Panel &p : panels) {
        for (std::size_t i = view.first; i < view.last; ++i)
            peak = std::max(peak, std::abs(int{p.signal[i]}));
    }
    std::fprintf(to, "set terminal %s\nset output %s\n",
                 svg ? "svg size 900,560 background 'white' font 'sans,12'"
                     : "pngcairo size 1350,840 font 'sans,14'",
                 quoted(output).c_str());
    std::fprintf(to,
                 "unset key\nset tics out nomirror\nset lmargin 9\nset tmargin 2\nset bmargin 2\n"
                 "set format y '%%.0f'\nset xrange [%f:%f]\nset yrange [%f:%f]\n",
                 ms(view.first), ms(view.last), -1.05 * peak, 1.05 * peak);
    for (const Stretch &s : shaded) {
        const std::size_t first = std::max(s.first, view.first);
        const std::size_t last = std::min(s.last, view.last);
        if (first >= last) continue;
        std::fprintf(to,
                     "set object rectangle from %f, graph 0 to %f, graph 1 behind fs solid noborder "
                     "fc rgb '#f6d5c5'\n",
                     ms(first), ms(last));
    }
    std::fprintf(to, "set multiplot layout %zu,1\n", panels.size());
    for (const Panel &p : panels) {
        std::fprintf(to, "set title %s offset 0,-0.6\n$data << end\n", quoted(p.title).c_str());
        for (std::size_t i = view.first; i < view.last; ++i) {
            const auto covers = [i](const Stretch &s) { return s.first <= i && i < s.last; };
            const bool hole = p.holes && std::any_of(shaded.begin(), shaded.end(), covers);
            std::fprintf(to, hole ? "%f NaN\n" : "%f %d\n", ms(i), p.signal[i]);
        }
        std::fprintf(to, "end\n%splot $data with lines lc rgb '#204a87'\n",
                     &p == &panels.back() ? "set bmargin 3\nset xlabel 'ms' offset 0,0.5\n" : "");
    }
    std::fprintf(to, "unset multiplot\nset output\n");
}

} // namespace

bool can_draw(const std::string &path) { return path.ends_with(".svg") || path.ends_with(".png"); }

void draw(const std::string &path, std::span<const Panel> panels, int rate, Stretch view,
          std::span<const Stretch> shaded) {
    OutputFile output(path);
    std::FILE *gnuplot = popen("command -v gnuplot >/dev/null || exit 127; exec gnuplot -d", "w");
    if (gnuplot == nullptr) throw FileError(path, "cannot draw: no child process");
    write_script(gnuplot, output.written_as(), path.ends_with(".svg"), panels, rate, view, shaded);
    const int status = pclose(gnuplot);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 127) {
        throw FileError(path, "cannot draw: gnuplot is not installed (Debian package gnuplot-nox)");
    }
    if (status != 0) throw FileError(path, "cannot draw: gnuplot failed");
    output.commit();
}
