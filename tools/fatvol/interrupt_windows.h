// Between the two platform_*_windows.cpp that wait for input and for interrupts.
#pragma once

namespace tool::platform {

// While one exists, an interrupt ends a wait of the main thread for standard input.
struct InputWait {
    InputWait();
    InputWait(const InputWait&) = delete;
    InputWait& operator=(const InputWait&) = delete;
    ~InputWait();
};

}  // namespace tool::platform
