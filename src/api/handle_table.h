// A table of handles: small numbers for what the host holds. A free place is always found from the
// hint upward.
//
// Invariants:
//  1. count places are occupied.
//  2. Every place below the hint is occupied.
#pragma once

#include <cstdint>
#include <utility>

namespace fatvol {

inline constexpr int NoHandle = -1;

// `Holder` owns what a handle stands for and converts to false when it holds nothing.
template <class Holder, std::uint32_t Capacity>
struct HandleTable {
    std::uint32_t count = 0;
    std::int32_t hint = 0;
    Holder slots[Capacity];

    bool IsFull() const { return count == Capacity; }

    // The lowest free handle, on which the hint is left. The table must not be full.
    int FindFree() {
        while (slots[hint]) {
            ++hint;
        }
        return hint;
    }

    void Occupy(int handle, Holder holder) {
        slots[handle] = std::move(holder);
        ++count;
    }

    bool IsOccupied(int handle) const {
        return handle >= 0 && static_cast<std::uint32_t>(handle) < Capacity &&
               static_cast<bool>(slots[handle]);
    }

    // Frees an occupied handle and hands over what it held.
    Holder Vacate(int handle) {
        --count;
        hint = handle < hint ? handle : hint;
        return std::exchange(slots[handle], Holder{});
    }
};

// Whether the invariants above hold.
template <class Holder, std::uint32_t Capacity>
bool IsSound(const HandleTable<Holder, Capacity>& table) {
    std::uint32_t occupied = 0;
    std::int32_t firstFree = static_cast<std::int32_t>(Capacity);
    for (std::int32_t handle = firstFree; handle-- > 0;) {
        if (table.slots[handle]) {
            ++occupied;
        } else {
            firstFree = handle;
        }
    }
    return occupied == table.count && table.hint <= firstFree;
}

}  // namespace fatvol
