// Objects that are there until the process ends, also while other static objects are destroyed.
#pragma once

#include <cstddef>
#include <new>
#include <utility>

namespace vorn {

/// As a static object: a `T` in memory of its own, so that no heap is needed for it, and that is
/// never destroyed.
template <class T>
class NeverDestroyed {
public:
    template <class... Arguments>
    explicit NeverDestroyed(Arguments&&... arguments)
        : object_(new (memory_) T(std::forward<Arguments>(arguments)...)) {}
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;

    T& get() { return *object_; }

private:
    alignas(T) std::byte memory_[sizeof(T)];
    T* object_;
};

} // namespace vorn
