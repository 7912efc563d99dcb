// What the command line may say: the commands, with their options and their help. Naming a command
// sets the action that runs it.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"

namespace tool {

using Action = std::function<int()>;

// What every help text ends with.
inline constexpr const char* kFooter =
    "IMAGE is a file or device that holds one FAT12, FAT16 or FAT32 volume, from its first\n"
    "sector on. PATH is a path on the volume, with / or \\ between its parts, in UTF-8; / alone\n"
    "is the root directory. Letter case does not matter.\n"
    "\n"
    "Exit codes:\n"
    "  0  done\n"
    "  1  failed\n"
    "  2  the command line was not understood\n"
    "  3  partly done: some of the files failed\n";

void AddReadingCommands(CLI::App& root, Action& action);
void AddChangingCommands(CLI::App& root, Action& action);

// A command with its options. `action` is set to run it when the command line names it.
template <typename Options>
struct Command {
    CLI::App* app;
    std::shared_ptr<Options> options;
};

template <typename Options>
Command<Options> AddCommand(CLI::App& root, Action& action, int (*run)(const Options&),
                            const std::string& name, const std::string& description) {
    const auto options = std::make_shared<Options>();
    CLI::App* const app = root.add_subcommand(name, description);
    app->add_option("IMAGE", options->image, "The image file or device")->required();
    app->callback([=, &action] { action = [=] { return run(*options); }; });
    return {app, options};
}

// Flags that say what becomes of files that exist already.
struct ExistingFlags {
    std::shared_ptr<bool> force = std::make_shared<bool>(false);
    std::shared_ptr<bool> skip = std::make_shared<bool>(false);

    OnExisting Choice() const {
        return *force ? OnExisting::Replace : *skip ? OnExisting::Skip : OnExisting::Fail;
    }
};

inline ExistingFlags AddExistingFlags(CLI::App& app) {
    const ExistingFlags flags;
    CLI::Option* const force =
        app.add_flag("-f,--force", *flags.force, "Replace files that exist already");
    app.add_flag("-s,--skip", *flags.skip, "Keep files that exist already")->excludes(force);
    return flags;
}

// Two or more places, the last of which is the target.
using Places = std::shared_ptr<std::vector<std::string>>;

inline Places AddPlaces(CLI::App& app, const std::string& name, const std::string& description) {
    const auto places = std::make_shared<std::vector<std::string>>();
    app.add_option(name, *places, description)->required()->expected(-2);
    return places;
}

}  // namespace tool
