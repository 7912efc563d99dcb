// The frame around every command.
#pragma once

#include <functional>
#include <string>

#include "commands.h"
#include "mounted_image.h"
#include "platform.h"
#include "report.h"

namespace tool {

// Mounts the image, does the work, unmounts and returns the exit code. The work reports what fails
// and what is done in parts; a Failure that it throws is reported as well.
int RunOnImage(const std::string& imagePath, platform::ImageAccess access,
               const std::function<void(MountedImage&, Report&)>& work);

// RunOnImage for a command that changes the volume, or only reads it when dry. A request to end
// the program does not end it at once: the work looks for it and stops at a sound place. What the
// work has done counts only when it has reached the image.
int ChangeImage(const std::string& imagePath, DryRun dryRun,
                const std::function<void(MountedImage&, Report&)>& work);

}  // namespace tool
