#include "report.h"

#include <cstdio>

#include "progress_bar.h"
#include "utf.h"

namespace tool {

void Report::Fail(const Failure& failure) {
    ++failedCount_;
    if (bar_ != nullptr) {
        bar_->Hide();
    }
    const std::string place = failure.path.empty() ? imagePath_ : imagePath_ + ": " + failure.path;
    const std::string line = EscapeControls("fatvol: " + place + ": " + failure.cause) + '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
}

int Report::ExitCode() const {
    if (failedCount_ == 0) {
        return kExitDone;
    }
    return doneCount_ == 0 ? kExitFailed : kExitPartlyDone;
}

}  // namespace tool
