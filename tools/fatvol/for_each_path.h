// The loop of the commands that do the same to each of several paths.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform.h"
#include "report.h"
#include "volume_path.h"

namespace tool {

// Does `work` for each path, until the process is interrupted; a Failure is reported and ends that
// path alone. The root directory is refused.
inline void ForEachPath(Report& report, const std::vector<std::string>& arguments,
                        const std::function<void(const std::u16string&)>& work) {
    for (const std::string& argument : arguments) {
        if (platform::Interrupted()) {
            return;
        }
        try {
            const std::u16string path = ChangePathFromArgument(argument);
            if (path.empty()) {
                throw Failure{"/", "is the root directory"};
            }
            work(path);
        } catch (const Failure& failure) {
            report.Fail(failure);
        }
    }
}

}  // namespace tool
