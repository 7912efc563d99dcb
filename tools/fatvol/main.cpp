// Reads the command line and runs the command. The commands are in command_*.cpp.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "platform.h"
#include "report.h"

namespace {

using tool::OnExisting;

using Action = std::function<int()>;

constexpr const char* kFooter =
    "IMAGE is a file or device that holds one FAT12, FAT16 or FAT32 volume, from its first\n"
    "sector on. PATH is a path on the volume, with / or \\ between its parts, in UTF-8; / alone\n"
    "is the root directory. Letter case does not matter.\n"
    "\n"
    "Exit codes:\n"
    "  0  done\n"
    "  1  failed\n"
    "  2  the command line was not understood\n"
    "  3  partly done: some of the files failed\n";

constexpr const char* kGetFooter =
    "When LOCAL is a directory, each PATH is copied into it under the name that it has on the\n"
    "volume. When LOCAL does not exist, the one PATH given becomes LOCAL. The root directory is\n"
    "different: its content always goes straight into the directory LOCAL, which is made if\n"
    "need be. A directory that exists already is added to; a file that exists already is left\n"
    "alone and counts as failed, unless --force or --skip says otherwise. Modification times\n"
    "are kept. Names that would lead out of LOCAL are refused and symbolic links inside LOCAL\n"
    "are never followed.\n"
    "\n";

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

void AddGet(CLI::App& root, Action& action) {
    const auto [app, options] = AddCommand(root, action, tool::RunGet, "get",
                                           "Copy files and directories out of the volume");
    const auto places = std::make_shared<std::vector<std::string>>();
    app->add_option("PATHS", *places, "PATH... LOCAL: what to copy, and the local target")
        ->required()
        ->expected(-2);  // two or more
    const auto force = std::make_shared<bool>(false);
    const auto skip = std::make_shared<bool>(false);
    CLI::Option* const forceFlag =
        app->add_flag("-f,--force", *force, "Replace local files that exist already");
    app->add_flag("-s,--skip", *skip, "Keep local files that exist already")->excludes(forceFlag);
    app->footer(std::string(kGetFooter) + kFooter);
    app->callback([=, &action, options = options] {
        options->local = places->back();
        options->paths.assign(places->begin(), places->end() - 1);
        options->onExisting = *force  ? OnExisting::Replace
                              : *skip ? OnExisting::Skip
                                      : OnExisting::Fail;
        action = [=] { return tool::RunGet(*options); };
    });
}

void AddCommands(CLI::App& root, Action& action) {
    AddCommand(root, action, tool::RunInfo, "info", "Describe the volume");

    const auto ls = AddCommand(root, action, tool::RunLs, "ls",
                               "List a directory: attributes (directory, read-only, hidden, "
                               "system, archive), size, modification time, short name, name");
    ls.app->add_option("PATH", ls.options->path, "The directory or file; default: the root");
    ls.app->add_flag("-1", ls.options->namesOnly, "Names only, one per line");

    const auto tree = AddCommand(root, action, tool::RunTree, "tree", "Show a directory as a tree");
    tree.app->add_option("PATH", tree.options->path, "The directory; default: the root");

    const auto cat = AddCommand(root, action, tool::RunCat, "cat",
                                "Write the contents of a file to standard output");
    cat.app->add_option("PATH", cat.options->path, "The file")->required();

    AddGet(root, action);

    const auto stat = AddCommand(root, action, tool::RunStat, "stat",
                                 "Show everything that a directory entry tells");
    stat.app->add_option("PATH", stat.options->path, "The file or directory")->required();
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> arguments = tool::platform::PrepareProcess(argc, argv);
    // The parser takes its arguments from the back.
    std::reverse(arguments.begin(), arguments.end());

    CLI::App root("Work on the files of a FAT volume image", "fatvol");
    // A path may start with a slash and is no option then.
    root.allow_windows_style_options(false);
    root.require_subcommand(1);
    root.footer(kFooter);
    root.failure_message([](const CLI::App*, const CLI::Error& error) {
        return std::string("fatvol: ") + error.what() + " (--help tells more)\n";
    });
    Action action;
    AddCommands(root, action);
    try {
        root.parse(arguments);
    } catch (const CLI::ParseError& error) {
        return root.exit(error) == 0 ? tool::kExitDone : tool::kExitUsage;
    }
    return action();
}
