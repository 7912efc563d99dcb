#include <optional>

#include "command_line.h"
#include "entry.h"

namespace tool {

namespace {

constexpr const char* kPutFooter =
    "When PATH is a directory, each LOCAL is copied into it under its own name. When PATH does\n"
    "not exist, the one LOCAL given becomes PATH, in a directory that exists. The content of\n"
    "directories without a name of their own, such as \".\", goes straight into PATH. LOCAL - is\n"
    "standard input, and PATH then names the file. A directory that exists already is added to;\n"
    "a file that exists already is left alone and counts as failed, unless --force or --skip\n"
    "says otherwise. --force replaces a file when the new one is written in full, for which both\n"
    "need room for a while. Modification times are kept. Symbolic links below LOCAL are not\n"
    "copied. A name of at most 8.3 plain characters is stored in capital letters.\n"
    "\n"
    "Names, sizes and room are checked before anything is written.\n"
    "\n";

constexpr const char* kCpFooter =
    "When TARGET is a directory, each SOURCE is copied into it; when it does not exist, the one\n"
    "SOURCE given becomes TARGET. All of them are on the volume. Existing files are treated as\n"
    "by put. Attributes and modification times are kept.\n"
    "\n";

constexpr const char* kMvFooter =
    "When TARGET is a directory, each SOURCE is moved into it; when it does not exist, the one\n"
    "SOURCE given becomes TARGET. Nothing is ever replaced. Times are kept.\n"
    "\n";

constexpr const char* kAttrFooter =
    "Attributes are r (read-only), h (hidden), s (system) and a (archive): +r sets one, -r clears\n"
    "one, +rh and -rh several. Without any they are shown. --help shows this text; -h clears an\n"
    "attribute here. A path that starts with + is written with a slash in front.\n"
    "\n";

std::shared_ptr<bool> AddDryRun(CLI::App& app) {
    const auto dryRun = std::make_shared<bool>(false);
    app.add_flag("-n,--dry-run", *dryRun, "Only tell what would be done");
    return dryRun;
}

DryRun Chosen(const std::shared_ptr<bool>& dryRun) {
    return *dryRun ? DryRun::Yes : DryRun::No;
}

void SplitPlaces(const Places& places, std::vector<std::string>* sources, std::string* target) {
    *target = places->back();
    sources->assign(places->begin(), places->end() - 1);
}

Command<CopyOptions> AddCopy(CLI::App& root, Action& action, int (*run)(const CopyOptions&),
                             const std::string& name, const std::string& description,
                             const std::string& placesDescription, const char* footer) {
    const auto command = AddCommand(root, action, run, name, description);
    const Places places = AddPlaces(*command.app, "PATHS", placesDescription);
    const ExistingFlags existing = AddExistingFlags(*command.app);
    const auto dryRun = AddDryRun(*command.app);
    command.app->footer(std::string(footer) + kFooter);
    command.app->callback([=, &action, options = command.options] {
        SplitPlaces(places, &options->sources, &options->target);
        options->onExisting = existing.Choice();
        options->dryRun = Chosen(dryRun);
        action = [=] { return run(*options); };
    });
    return command;
}

void AddMv(CLI::App& root, Action& action) {
    const auto [app, options] =
        AddCommand(root, action, RunMv, "mv", "Move or rename files and directories");
    const Places places = AddPlaces(*app, "PATHS", "SOURCE... TARGET, all on the volume");
    app->footer(std::string(kMvFooter) + kFooter);
    app->callback([=, &action, options = options] {
        SplitPlaces(places, &options->sources, &options->target);
        action = [=] { return RunMv(*options); };
    });
}

void AddRm(CLI::App& root, Action& action) {
    const auto [app, options] =
        AddCommand(root, action, RunRm, "rm", "Remove files and directories");
    app->add_option("PATH", options->paths, "What to remove")->required();
    app->add_flag("-r,--recursive", options->recursive, "Directories, with everything in them");
    const auto dryRun = AddDryRun(*app);
    app->callback([=, &action, options = options] {
        options->dryRun = Chosen(dryRun);
        action = [=] { return RunRm(*options); };
    });
}

void AddTruncate(CLI::App& root, Action& action) {
    const auto [app, options] = AddCommand(root, action, RunTruncate, "truncate",
                                           "Cut files to a size, or make them longer with zeros");
    app->add_option("PATH", options->paths, "The files")->required();
    app->add_option("-s,--size", options->sizeBytes,
                    "Bytes; with K, M or G: times 1024, 1024 * 1024, ...")
        ->required()
        ->transform(CLI::AsSizeValue(false));
    const auto dryRun = AddDryRun(*app);
    app->callback([=, &action, options = options] {
        options->dryRun = Chosen(dryRun);
        action = [=] { return RunTruncate(*options); };
    });
}

constexpr struct {
    char letter;
    unsigned int bit;
    const char* clearing;
    const char* description;
} kAttributes[] = {{'r', kReadOnly, "-r", "Clear the read-only attribute"},
                   {'h', kHidden, "-h", "Clear the hidden attribute"},
                   {'s', kSystem, "-s", "Clear the system attribute"},
                   {'a', kArchive, "-a", "Clear the archive attribute"}};

// The bits of an argument such as "+rh"; nothing when it is none.
std::optional<unsigned int> BitsToSet(const std::string& argument) {
    if (argument.size() < 2 || argument.front() != '+') {
        return std::nullopt;
    }
    unsigned int bits = 0;
    for (const char letter : argument.substr(1)) {
        unsigned int bit = 0;
        for (const auto& attribute : kAttributes) {
            bit = attribute.letter == letter ? attribute.bit : bit;
        }
        if (bit == 0) {
            throw CLI::ValidationError("attr",
                                       argument + " names an attribute other than r, h, s, a");
        }
        bits |= bit;
    }
    return bits;
}

void AddAttr(CLI::App& root, Action& action) {
    const auto [app, options] = AddCommand(
        root, action, RunAttr, "attr", "Show or change the attributes of files and directories");
    app->set_help_flag("--help", "Print this help message and exit");
    const auto arguments = std::make_shared<std::vector<std::string>>();
    app->add_option("PATH", *arguments, "Paths, and +r, +h, +s, +a for attributes to be set")
        ->required();
    for (const auto& attribute : kAttributes) {
        app->add_flag_callback(
            attribute.clearing, [options = options, bit = attribute.bit] { options->clear |= bit; },
            attribute.description);
    }
    app->footer(std::string(kAttrFooter) + kFooter);
    app->callback([=, &action, options = options] {
        for (const std::string& argument : *arguments) {
            if (const auto bits = BitsToSet(argument)) {
                options->set |= *bits;
            } else {
                options->paths.push_back(argument);
            }
        }
        if (options->paths.empty() || (options->set & options->clear) != 0) {
            throw CLI::ValidationError("attr", options->paths.empty()
                                                   ? "a path is needed"
                                                   : "an attribute is both set and cleared");
        }
        action = [=] { return RunAttr(*options); };
    });
}

}  // namespace

void AddChangingCommands(CLI::App& root, Action& action) {
    AddCopy(root, action, RunPut, "put", "Copy local files and directories onto the volume",
            "LOCAL... PATH: what to copy, and the target on the volume", kPutFooter);

    const auto cp = AddCopy(root, action, RunCp, "cp", "Copy files within the volume",
                            "SOURCE... TARGET, all on the volume", kCpFooter);
    cp.app->add_flag("-r,--recursive", cp.options->recursive,
                     "Directories, with everything in them");

    AddMv(root, action);
    AddRm(root, action);

    const auto mkdir = AddCommand(root, action, RunMkdir, "mkdir", "Make directories");
    mkdir.app->add_option("PATH", mkdir.options->paths, "The directories")->required();
    mkdir.app->add_flag("-p,--parents", mkdir.options->withParents,
                        "Also those missing above; existing ones are no failure");

    AddTruncate(root, action);
    AddAttr(root, action);

    const auto touch = AddCommand(root, action, RunTouch, "touch",
                                  "Set modification and access time to now; make empty files of "
                                  "those that do not exist");
    touch.app->add_option("PATH", touch.options->paths, "The files or directories")->required();
    touch.app->add_option(
        "-d,--date", touch.options->time,
        "Another time: \"2024-05-31 14:30:00\", with or without seconds, or a date");
}

}  // namespace tool
