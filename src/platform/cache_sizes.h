// How much the library keeps in memory, and so when something goes back to the volume. Tests are
// also built with FATVOL_SMALL_CACHES: on volumes of ordinary size blocks and objects leave their
// caches in the middle of calls then, as they otherwise do on very large ones only.
#pragma once

#include <cstdint>

namespace fatvol {

#if !defined(FATVOL_SMALL_CACHES)
inline constexpr std::uint32_t CacheBlockCount = 256;        // blocks of files and directories
inline constexpr std::uint32_t FatBlockShift = 18;           // log2 of the bytes of a block
inline constexpr std::uint32_t FatCacheCapacity = 256;       // blocks of a FAT
inline constexpr std::uint32_t OpenObjectLimit = 160;        // open files and directories
inline constexpr std::uint32_t WaitingDirectoryLimit = 136;  // grown ones; more than a path has
#else
inline constexpr std::uint32_t CacheBlockCount = 12;
inline constexpr std::uint32_t FatBlockShift = 13;
inline constexpr std::uint32_t FatCacheCapacity = 6;
inline constexpr std::uint32_t OpenObjectLimit = 8;
inline constexpr std::uint32_t WaitingDirectoryLimit = 4;
#endif

}  // namespace fatvol
