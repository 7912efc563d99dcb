// The frame around every command.
#pragma once

#include <functional>
#include <string>

#include "mounted_image.h"
#include "platform.h"
#include "report.h"

namespace tool {

// Mounts the image, does the work, unmounts and returns the exit code. The work reports what fails
// and what is done in parts; a Failure that it throws is reported as well.
int RunOnImage(const std::string& imagePath, platform::ImageAccess access,
               const std::function<void(MountedImage&, Report&)>& work);

}  // namespace tool
