#include "gnuplot.h"

#include "file.h"

#include <array>
#include <sys/wait.h>

namespace {

std::string terminal(bool svg, int width, int height) {
    // Three pixels for two units of SVG: text stays as large beside the lines.
    return "set terminal " +
           (svg ? "svg size " + std::to_string(width) + "," + std::to_string(height) +
                      " background 'white' font 'sans,12'"
                : "pngcairo size " + std::to_string(width * 3 / 2) + "," + std::to_string(height * 3 / 2) +
                      " font 'sans,14'") +
           "\nset encoding utf8\n";
}

} // namespace

bool can_draw(const std::string &path) {
    const std::string suffix = suffix_of(path);
    return suffix == ".svg" || suffix == ".png";
}

std::string quoted(const std::string &text) {
    std::string result;
    for (const char c : text) result += c == '\'' ? "''" : std::string(1, c);
    return "'" + result + "'";
}

std::string drawn(const std::string &path, int width, int height, const std::string &script) {
    const File file = temporary_file();
    const std::string text = terminal(suffix_of(path) == ".svg", width, height) + script;
    if (std::fwrite(text.data(), 1, text.size(), file.get()) != text.size() || std::fflush(file.get()) != 0) {
        fail("temporary file", "cannot write");
    }
    const std::string command = "command -v gnuplot >/dev/null || exit 127; exec gnuplot -d /dev/fd/" +
                                std::to_string(fileno(file.get()));
    File pipe(popen(command.c_str(), "r"), pclose);
    if (pipe == nullptr) fail(path, "cannot draw");
    std::string picture;
    std::array<std::uint8_t, 65536> block{};
    while (const std::size_t n = read_block(pipe.get(), "gnuplot", block)) {
        picture.append(reinterpret_cast<const char *>(block.data()), n);
    }
    const int status = pclose(pipe.release());
    if (WIFEXITED(status) && WEXITSTATUS(status) == 127) {
        throw FileError(path, "cannot draw: gnuplot is not installed (Debian package gnuplot-nox)");
    }
    if (status != 0 || picture.empty()) throw FileError(path, "cannot draw: gnuplot failed");
    return picture;
}
