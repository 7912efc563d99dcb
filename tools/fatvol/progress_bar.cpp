#include "progress_bar.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "output.h"
#include "platform.h"
#include "report.h"

namespace tool {

namespace {

constexpr auto kRedrawInterval = std::chrono::milliseconds(100);
constexpr int kTextColumns = 50;  // what the figures beside the bar take at the most

}  // namespace

ProgressBar::ProgressBar(std::uint64_t totalBytes, Report& report)
    : report_(report),
      isEnabled_(platform::IsTerminal(platform::Stream::Error)),
      totalBytes_(totalBytes),
      start_(Clock::now()),
      lastDrawn_(start_) {
    report_.ShareTerminalWith(this);
}

ProgressBar::~ProgressBar() {
    Hide();
    report_.ShareTerminalWith(nullptr);
}

void ProgressBar::Advance(std::uint64_t byteCount) {
    doneBytes_ += byteCount;
    const auto now = Clock::now();
    if (isEnabled_ && now - lastDrawn_ >= kRedrawInterval) {
        Draw(now);
    }
}

void ProgressBar::Hide() {
    if (isShown_) {
        std::fputs("\r\x1b[K", stderr);
        isShown_ = false;
    }
}

std::string ProgressBar::PartText() const {
    const double fraction =
        std::min(1.0, static_cast<double>(doneBytes_) / static_cast<double>(totalBytes_));
    const int columns = platform::TerminalColumns(platform::Stream::Error);
    const auto width = static_cast<std::size_t>(std::clamp(columns - kTextColumns, 5, 60));
    std::string bar(static_cast<std::size_t>(fraction * static_cast<double>(width)), '#');
    bar.resize(width, '.');
    return fmt::format("{:3.0f} % [{}] {} of {}", fraction * 100, bar, HumanBytes(doneBytes_),
                       HumanBytes(totalBytes_));
}

void ProgressBar::Draw(Clock::time_point now) {
    const double seconds = std::chrono::duration<double>(now - start_).count();
    const auto bytesPerSecond =
        static_cast<std::uint64_t>(static_cast<double>(doneBytes_) / std::max(seconds, 0.001));
    const std::string line =
        fmt::format("\r{}, {}/s\x1b[K", totalBytes_ == 0 ? HumanBytes(doneBytes_) : PartText(),
                    HumanBytes(bytesPerSecond));
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
    lastDrawn_ = now;
    isShown_ = true;
}

}  // namespace tool
