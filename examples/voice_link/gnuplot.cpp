#include "gnuplot.h"

#include "file.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <spawn.h>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

std::string terminal(bool svg, int width, int height) {
    // Three pixels for two units of SVG. The font size keeps the proportion of text and lines.
    return "set terminal " +
           (svg ? "svg size " + std::to_string(width) + "," + std::to_string(height) +
                      " background 'white' font 'sans,12'"
                : "pngcairo size " + std::to_string(width * 3 / 2) + "," + std::to_string(height * 3 / 2) +
                      " font 'sans,14'") +
           "\nset encoding utf8\n";
}

struct Gnuplot {
    pid_t process;
    File output;
};

// The script is its standard input.
Gnuplot start_gnuplot(const std::string &path, int script) {
    int ends[2]; // of a pipe: reading, writing
    if (pipe2(ends, O_CLOEXEC) != 0) fail(path, "cannot draw");
    File output(fdopen(ends[0], "r"), std::fclose);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, script, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    std::string name = "gnuplot";
    std::string no_settings = "-d"; // those of the user
    std::array<char *, 3> arguments = {name.data(), no_settings.data(), nullptr};
    std::string locale = "LC_ALL=C.UTF-8"; // in one without UTF-8 gnuplot warns
    std::vector<char *> environment = {locale.data()};
    for (char **variable = environ; *variable != nullptr; ++variable) {
        if (!std::string_view(*variable).starts_with("LC_ALL=")) environment.push_back(*variable);
    }
    environment.push_back(nullptr);
    pid_t process = 0;
    const int error =
        posix_spawnp(&process, "gnuplot", &actions, nullptr, arguments.data(), environment.data());
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (error == ENOENT) {
        throw FileError(path, "cannot draw: gnuplot is not installed (Debian package gnuplot-nox)");
    }
    if (error != 0 || output == nullptr) throw FileError(path, "cannot draw: gnuplot does not start");
    return {process, std::move(output)};
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

void check_gnuplot(const std::string &path) { drawn(path, 100, 100, "plot x\n"); }

std::string drawn(const std::string &path, int width, int height, const std::string &script) {
    const File file = temporary_file();
    const std::string text = terminal(suffix_of(path) == ".svg", width, height) + script;
    if (std::fwrite(text.data(), 1, text.size(), file.get()) != text.size() ||
        std::fseek(file.get(), 0, SEEK_SET) != 0) {
        fail("temporary file", "cannot write");
    }
    const auto [child, output] = start_gnuplot(path, fileno(file.get()));
    std::string picture;
    std::array<std::uint8_t, 65536> block{};
    while (const std::size_t n = read_block(output.get(), "gnuplot", block)) {
        picture.append(reinterpret_cast<const char *>(block.data()), n);
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child || status != 0 || picture.empty()) {
        throw FileError(path, "cannot draw: gnuplot failed");
    }
    return picture;
}
