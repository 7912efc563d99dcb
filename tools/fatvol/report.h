// What went well and what failed, told to the user line by line and summed up as an exit code.
#pragma once

#include <string>
#include <utility>

namespace tool {

class ProgressBar;

// Thrown by what cannot do its work; whoever can go on with other work catches it.
struct Failure {
    std::string path;   // the file concerned, as the user knows it; empty: the image itself
    std::string cause;  // a phrase without a full stop
};

// The exit codes of the tool.
enum ExitCode { kExitDone = 0, kExitFailed = 1, kExitUsage = 2, kExitPartlyDone = 3 };

class Report {
public:
    explicit Report(std::string imagePath) : imagePath_(std::move(imagePath)) {}

    // One more file, or the whole of a command that has no parts, was dealt with.
    void Done() { ++doneCount_; }

    // Prints one line to standard error.
    void Fail(const Failure& failure);

    int ExitCode() const;

    // A bar that gives way to messages while it is shown; null for none. Not owned.
    void ShareTerminalWith(ProgressBar* bar) { bar_ = bar; }

private:
    std::string imagePath_;
    ProgressBar* bar_ = nullptr;
    unsigned long long doneCount_ = 0;
    unsigned long long failedCount_ = 0;
};

}  // namespace tool
