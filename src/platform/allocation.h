// Allocation that reports failure by a null pointer: the library answers a lack of memory with a
// status, and throws nowhere.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

namespace fatvol {

// A new object, or null when there is no memory for it.
template <class T, class... Arguments>
[[nodiscard]] std::unique_ptr<T> TryNew(Arguments&&... arguments) {
    return std::unique_ptr<T>(new (std::nothrow) T(std::forward<Arguments>(arguments)...));
}

// `count` elements, each zero or default-constructed, or null when there is no memory for them.
template <class T>
[[nodiscard]] std::unique_ptr<T[]> TryNewArray(std::size_t count) {
    return std::unique_ptr<T[]>(new (std::nothrow) T[count]());
}

}  // namespace fatvol
