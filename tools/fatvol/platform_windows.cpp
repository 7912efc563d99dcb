#include <fcntl.h>
#include <io.h>
#include <windows.h>
// After windows.h, which it builds upon.
#include <shellapi.h>
#undef CreateFile  // also the name of a member in platform.h

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "interrupt_windows.h"
#include "platform.h"
#include "wide_path.h"

namespace tool::platform {

namespace {

struct LocalMemory {
    void operator()(void* memory) const { LocalFree(memory); }
};

UINT previousOutputCodePage = 0;

HANDLE StreamHandle(Stream stream) {
    return GetStdHandle(stream == Stream::Output ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
}

// The console outlives the program, and so would its settings.
void PrepareConsole() {
    previousOutputCodePage = GetConsoleOutputCP();
    if (previousOutputCodePage != 0 && SetConsoleOutputCP(CP_UTF8)) {
        std::atexit([] { SetConsoleOutputCP(previousOutputCodePage); });
    }
    for (const Stream stream : {Stream::Output, Stream::Error}) {
        DWORD mode = 0;
        if (GetConsoleMode(StreamHandle(stream), &mode)) {
            SetConsoleMode(StreamHandle(stream), mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
        }
    }
}

std::atomic<bool> interruptRequested = false;
std::atomic<bool> waitsForInput = false;
HANDLE mainThread = nullptr;

// Runs on a thread of the system's. Whoever waits for input is to look at the flag as well.
BOOL WINAPI NoteInterrupt(DWORD event) {
    interruptRequested = true;
    if (waitsForInput) {
        CancelSynchronousIo(mainThread);
    }
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) {
        Sleep(INFINITE);  // when this returned, the process would end at once
    }
    return TRUE;
}

}  // namespace

InputWait::InputWait() {
    waitsForInput = true;
}

InputWait::~InputWait() {
    waitsForInput = false;
}

std::string ErrorText(int errorCode) {
    wchar_t* text = nullptr;
    const DWORD length = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, static_cast<DWORD>(errorCode), 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    const std::unique_ptr<wchar_t, LocalMemory> owner(text);
    std::wstring message(text, length);
    message.erase(message.find_last_not_of(L".\r\n ") + 1);
    return message.empty() ? "error " + std::to_string(errorCode) : Utf8FromWide(message);
}

int StreamError() {
    return static_cast<int>(_doserrno);
}

std::vector<std::string> PrepareProcess(int, char**) {
    SetErrorMode(SEM_FAILCRITICALERRORS);  // a drive without its medium is an error, not a question
    for (std::FILE* stream : {stdin, stdout, stderr}) {
        _setmode(_fileno(stream), _O_BINARY);
    }
    PrepareConsole();
    int count = 0;
    const std::unique_ptr<wchar_t*, LocalMemory> arguments(
        CommandLineToArgvW(GetCommandLineW(), &count));
    std::vector<std::string> texts;
    for (int i = 1; i < count; ++i) {
        texts.push_back(Utf8FromWide(arguments.get()[i]));
    }
    return texts;
}

bool IsTerminal(Stream stream) {
    DWORD mode = 0;
    return GetConsoleMode(StreamHandle(stream), &mode) != 0;
}

int TerminalColumns(Stream stream) {
    CONSOLE_SCREEN_BUFFER_INFO info{};
    const bool isKnown = GetConsoleScreenBufferInfo(StreamHandle(stream), &info) != 0;
    const int columns = info.srWindow.Right - info.srWindow.Left + 1;
    return isKnown && columns > 1 ? columns : 80;
}

void CatchInterrupts() {
    const HANDLE process = GetCurrentProcess();
    DuplicateHandle(process, GetCurrentThread(), process, &mainThread, 0, FALSE,
                    DUPLICATE_SAME_ACCESS);
    SetConsoleCtrlHandler(NoteInterrupt, TRUE);
}

bool Interrupted() {
    return interruptRequested;
}

}  // namespace tool::platform
