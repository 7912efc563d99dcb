// Reads the command line and runs the command. The commands are in command_*.cpp.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "command_line.h"
#include "platform.h"
#include "report.h"

namespace {

int Run(int argc, char** argv) {
    std::vector<std::string> arguments = tool::platform::PrepareProcess(argc, argv);
    // The parser takes its arguments from the back.
    std::reverse(arguments.begin(), arguments.end());

    CLI::App root("Work on the files of a FAT volume image", "fatvol");
    // A path may start with a slash and is no option then.
    root.allow_windows_style_options(false);
    root.require_subcommand(1);
    root.footer(tool::kFooter);
    root.failure_message([](const CLI::App*, const CLI::Error& error) {
        return std::string("fatvol: ") + error.what() + " (--help tells more)\n";
    });
    tool::Action action;
    tool::AddReadingCommands(root, action);
    tool::AddChangingCommands(root, action);
    try {
        root.parse(arguments);
    } catch (const CLI::ParseError& error) {
        return root.exit(error) == 0 ? tool::kExitDone : tool::kExitUsage;
    }
    return action();
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Run(argc, argv);
    } catch (const std::exception& error) {  // memory that is missing while arguments are read
        std::fprintf(stderr, "fatvol: %s\n", error.what());
        return tool::kExitFailed;
    }
}
