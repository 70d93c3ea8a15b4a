#include "outputs.h"

#include "file.h"

#include <filesystem>
#include <set>
#include <span>

namespace fs = std::filesystem;

namespace {

std::string in_folder(const fs::path &folder, const std::string &input, const std::string &ending) {
    const std::string stem = input == "-" ? "stdin" : fs::path(input).stem().string();
    return (folder / (stem + ending)).string();
}

// Devices and pipes may be named more than once.
bool is_replaced(const std::string &path) {
    std::error_code ignored;
    return path != "-" && (!fs::exists(path, ignored) || fs::is_regular_file(path, ignored));
}

} // namespace

std::vector<Task> tasks(const Files &files, const std::string &suffix, unsigned runs,
                        std::uint32_t first_seed) {
    const std::string &target = files.names.back();
    const std::span inputs(files.names.data(), files.names.size() - 1);
    std::error_code ignored;
    if (inputs.size() == 1 && runs == 1 && !target.ends_with('/') && !fs::is_directory(target, ignored)) {
        return {{inputs[0], target}};
    }
    if (target == "-") throw UsageError("standard output takes one output; name a folder for several");
    std::vector<Task> all;
    for (const std::string &input : inputs) {
        for (unsigned run = 0; run < runs; ++run) {
            const std::string seed = runs == 1 ? "" : ".seed" + std::to_string(first_seed + run);
            all.push_back({input, in_folder(target, input, seed + suffix), run});
        }
    }
    return all;
}

void check_distinct(std::vector<std::string> inputs, const std::vector<Task> &tasks,
                    std::vector<std::string> outputs) {
    for (const Task &task : tasks) {
        outputs.push_back(task.output);
        if (inputs.empty() || inputs.back() != task.input) inputs.push_back(task.input);
    }
    std::set<fs::path> seen;
    std::error_code ignored;
    for (const std::string &output : outputs) {
        if (output.empty() || !is_replaced(output)) continue;
        if (!seen.insert(fs::weakly_canonical(fs::absolute(output), ignored)).second) {
            throw UsageError("two outputs would be written to " + output);
        }
        for (const std::string &input : inputs) {
            if (fs::equivalent(output, input, ignored)) {
                throw UsageError(output + " is an input and would be overwritten");
            }
        }
    }
}

void make_folder(const Files &files, const std::vector<Task> &tasks) {
    const std::string &target = files.names.back();
    if (tasks.front().output == target) return;
    std::error_code ignored;
    fs::create_directories(target, ignored);
    if (!fs::is_directory(target, ignored)) {
        throw FileError(target, "cannot write: several outputs need a folder");
    }
}
