// A bar on standard error that shows how far a copy has come. Shown only on a terminal, where it
// gives way to the messages of a report.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tool {

class Report;

class ProgressBar {
public:
    // `report` must outlive the bar. A total of 0 is one that is not known.
    ProgressBar(std::uint64_t totalBytes, Report& report);
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;
    ~ProgressBar();

    // Counts bytes as done and redraws from time to time.
    void Advance(std::uint64_t byteCount);

    // Takes the bar off the terminal; the next Advance may bring it back.
    void Hide();

private:
    using Clock = std::chrono::steady_clock;

    void Draw(Clock::time_point now);
    std::string PartText() const;

    Report& report_;
    const bool isEnabled_;
    const std::uint64_t totalBytes_;
    const Clock::time_point start_;
    Clock::time_point lastDrawn_;
    std::uint64_t doneBytes_ = 0;
    bool isShown_ = false;
};

}  // namespace tool
