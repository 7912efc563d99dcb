#include "output.h"

#include <fmt/format.h>

#include <cstdio>

#include "platform.h"
#include "report.h"
#include "utf.h"

namespace tool {

namespace {

[[noreturn]] void FailOutput() {
    throw Failure{"standard output", platform::ErrorText(platform::StreamError())};
}

}  // namespace

void WriteOutput(const void* bytes, std::size_t count) {
    if (std::fwrite(bytes, 1, count, stdout) != count) {
        FailOutput();
    }
}

void PrintLine(std::string_view line) {
    WriteOutput(line.data(), line.size());
    WriteOutput("\n", 1);
}

void FlushOutput() {
    if (std::fflush(stdout) != 0) {
        FailOutput();
    }
}

std::string ShownName(std::u16string_view name) {
    return ShownText(Utf8FromUtf16(name));
}

std::string ShownEntryName(const Entry& entry) {
    return entry.Name().empty() ? "(name not convertible)" : ShownName(entry.Name());
}

std::string ShownText(const std::string& text) {
    static const bool onTerminal = platform::IsTerminal(platform::Stream::Output);
    return onTerminal ? EscapeControls(text) : text;
}

std::string HumanBytes(std::uint64_t byteCount) {
    constexpr const char* kUnits[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    if (byteCount < 1024) {
        return fmt::format("{} B", byteCount);
    }
    double amount = static_cast<double>(byteCount) / 1024;
    std::size_t unit = 0;
    while (amount >= 1024 && unit + 1 < std::size(kUnits)) {
        amount /= 1024;
        ++unit;
    }
    return fmt::format("{:.1f} {}", amount, kUnits[unit]);
}

}  // namespace tool
