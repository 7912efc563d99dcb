#include "command_line.h"

namespace tool {

namespace {

constexpr const char* kGetFooter =
    "When LOCAL is a directory, each PATH is copied into it under the name that it has on the\n"
    "volume. When LOCAL does not exist, the one PATH given becomes LOCAL. The root directory is\n"
    "different: its content always goes straight into the directory LOCAL, which is made if\n"
    "need be. A directory that exists already is added to; a file that exists already is left\n"
    "alone and counts as failed, unless --force or --skip says otherwise. Modification times\n"
    "are kept. Names that would lead out of LOCAL are refused and symbolic links inside LOCAL\n"
    "are never followed.\n"
    "\n";

void AddGet(CLI::App& root, Action& action) {
    const auto [app, options] =
        AddCommand(root, action, RunGet, "get", "Copy files and directories out of the volume");
    const Places places =
        AddPlaces(*app, "PATHS", "PATH... LOCAL: what to copy, and the local target");
    const ExistingFlags existing = AddExistingFlags(*app);
    app->footer(std::string(kGetFooter) + kFooter);
    app->callback([=, &action, options = options] {
        options->local = places->back();
        options->paths.assign(places->begin(), places->end() - 1);
        options->onExisting = existing.Choice();
        action = [=] { return RunGet(*options); };
    });
}

}  // namespace

void AddReadingCommands(CLI::App& root, Action& action) {
    AddCommand(root, action, RunInfo, "info", "Describe the volume");

    const auto ls = AddCommand(root, action, RunLs, "ls",
                               "List a directory: attributes (directory, read-only, hidden, "
                               "system, archive), size, modification time, short name, name");
    ls.app->add_option("PATH", ls.options->path, "The directory or file; default: the root");
    ls.app->add_flag("-1", ls.options->namesOnly, "Names only, one per line");

    const auto tree = AddCommand(root, action, RunTree, "tree", "Show a directory as a tree");
    tree.app->add_option("PATH", tree.options->path, "The directory; default: the root");

    const auto cat =
        AddCommand(root, action, RunCat, "cat", "Write the contents of a file to standard output");
    cat.app->add_option("PATH", cat.options->path, "The file")->required();

    AddGet(root, action);

    const auto stat =
        AddCommand(root, action, RunStat, "stat", "Show everything that a directory entry tells");
    stat.app->add_option("PATH", stat.options->path, "The file or directory")->required();
}

}  // namespace tool
