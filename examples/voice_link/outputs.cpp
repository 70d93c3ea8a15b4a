#include "outputs.h"

#include "file.h"

#include <filesystem>
#include <set>

namespace fs = std::filesystem;

namespace {

std::string in_folder(const fs::path &folder, const std::string &input, const std::string &ending) {
    const std::string stem = input == "-" ? "stdin" : fs::path(input).stem().string();
    return (folder / (stem + ending)).string();
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
    std::set<std::string> outputs;
    for (const std::string &input : inputs) {
        for (unsigned run = 0; run < runs; ++run) {
            const std::string seed = runs == 1 ? "" : ".seed" + std::to_string(first_seed + run);
            const std::string output = in_folder(target, input, seed + suffix);
            if (!outputs.insert(output).second) throw UsageError("two inputs would be written to " + output);
            for (const std::string &other : inputs) {
                if (fs::equivalent(output, other, ignored)) {
                    throw UsageError(output + " is an input and would be overwritten");
                }
            }
            all.push_back({input, output, run});
        }
    }
    fs::create_directories(target, ignored);
    if (!fs::is_directory(target, ignored)) {
        throw FileError(target, "cannot write: several outputs need a folder");
    }
    return all;
}
