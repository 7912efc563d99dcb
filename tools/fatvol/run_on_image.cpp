#include "run_on_image.h"

#include <exception>

#include "output.h"

namespace tool {

namespace {

// Whether `step` came to its end; if not, the reason is reported.
bool Attempt(Report& report, const std::function<void()>& step) {
    try {
        step();
        return true;
    } catch (const Failure& failure) {
        report.Fail(failure);
    } catch (const std::bad_alloc&) {
        report.Fail({"", "out of memory"});
    } catch (const std::exception& error) {
        report.Fail({"", error.what()});
    }
    return false;
}

}  // namespace

int RunOnImage(const std::string& imagePath, platform::ImageAccess access,
               const std::function<void(MountedImage&, Report&)>& work) {
    Report report(imagePath);
    Attempt(report, [&] {
        const LibrarySession library;
        MountedImage image(imagePath, access);
        Attempt(report, [&] { work(image, report); });
        Attempt(report, FlushOutput);
        image.Unmount();
    });
    return report.ExitCode();
}

int ChangeImage(const std::string& imagePath, DryRun dryRun,
                const std::function<void(MountedImage&, Report&)>& work) {
    using platform::ImageAccess;
    platform::CatchInterrupts();
    return RunOnImage(imagePath,
                      dryRun == DryRun::Yes ? ImageAccess::ReadOnly : ImageAccess::ReadWrite,
                      [&](MountedImage& image, Report& report) {
                          Attempt(report, [&] { work(image, report); });
                          if (dryRun == DryRun::No) {
                              image.Flush();
                          }
                          if (platform::Interrupted()) {
                              throw Failure{"", "interrupted"};
                          }
                      });
}

}  // namespace tool
