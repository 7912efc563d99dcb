# Windows x64 by Debian's cross compiler with POSIX threads.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(toolchainPrefix x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${toolchainPrefix}-gcc-posix)  # googletest asks for one
set(CMAKE_CXX_COMPILER ${toolchainPrefix}-g++-posix)

# Programs are those of this machine, everything else is the target's.
set(CMAKE_FIND_ROOT_PATH /usr/${toolchainPrefix})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
