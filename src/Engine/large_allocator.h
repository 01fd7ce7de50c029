// SPDX-License-Identifier: MIT
// Memory for pixel buffers and the other large arrays of a render.
//
// Buffers of kLargeBufferBytes or more are mapped from the kernel on their own, so that they go back to it
// whole and at once when they are freed; smaller ones come from the heap as usual. They stay in small
// pages, faulted in as they are first written, even where the kernel would give transparent huge pages:
// on a virtual machine whose kernel reports free memory to the host (free page reporting, as on our
// Firecracker VMs), a huge page mostly comes from memory the host has taken back, and filling one in took
// about 5 ms after other programs had run, where the faults of 2 MB of small pages, which the kernel takes
// from memory it still has, cost well under a millisecond. In the thumbnail benchmark, run among other
// programs, huge pages made a 2560x1920 JPEG 1.37 to 1.65 times as slow as a plain decode, small pages 1.09
// to 1.24 times, and the other pictures came out as fast or faster.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace voimg {

inline constexpr size_t kLargeBufferBytes = size_t(512) << 10;

// Zeroed memory for `bytes` (at least kLargeBufferBytes), page aligned; throws std::bad_alloc.
void* mapLargeBuffer(size_t bytes);
// Returns what mapLargeBuffer(bytes) gave.
void unmapLargeBuffer(void* memory, size_t bytes) noexcept;

// Address sanitizing checks only heap memory, so its builds keep large buffers on the heap too.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kMapsLargeBuffers = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool kMapsLargeBuffers = false;
#else
inline constexpr bool kMapsLargeBuffers = true;
#endif
#else
inline constexpr bool kMapsLargeBuffers = true;
#endif

// A standard allocator that maps large buffers as above. Whether a buffer is mapped depends on its size
// alone, which deallocate is given again.
template <class T>
struct LargeAllocator {
    using value_type = T;

    LargeAllocator() = default;
    template <class U>
    LargeAllocator(const LargeAllocator<U>&) noexcept {}

    static bool mapped(size_t n) { return kMapsLargeBuffers && n >= kLargeBufferBytes / sizeof(T); }

    T* allocate(size_t n) {
        if (!mapped(n)) return std::allocator<T>().allocate(n);
        if (n > SIZE_MAX / sizeof(T)) throw std::bad_array_new_length();
        return static_cast<T*>(mapLargeBuffer(n * sizeof(T)));
    }
    void deallocate(T* p, size_t n) noexcept {
        if (mapped(n))
            unmapLargeBuffer(p, n * sizeof(T));
        else
            std::allocator<T>().deallocate(p, n);
    }

    template <class U>
    bool operator==(const LargeAllocator<U>&) const noexcept {
        return true;
    }
};

// The same, leaving the new elements of a resized vector uninitialised (default-initialised): for buffers
// written in full before they are read. A mapped buffer still reads as zeros until written.
template <class T>
struct UninitialisedAllocator : LargeAllocator<T> {
    template <class U>
    struct rebind {
        using other = UninitialisedAllocator<U>;
    };
    UninitialisedAllocator() = default;
    template <class U>
    UninitialisedAllocator(const UninitialisedAllocator<U>&) noexcept {}
    template <class U>
    void construct(U* p) noexcept {
        ::new (static_cast<void*>(p)) U;
    }
    template <class U, class... Args>
    void construct(U* p, Args&&... args) {
        ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
    }
};

// An array of trivial values left uninitialised, allocated as above and freed with its size.
template <class T>
struct LargeArrayDeleter {
    size_t count = 0;
    void operator()(T* p) const noexcept { LargeAllocator<T>().deallocate(p, count); }
};
template <class T>
using LargeArray = std::unique_ptr<T[], LargeArrayDeleter<T>>;

template <class T>
LargeArray<T> makeLargeArray(size_t count) {
    static_assert(std::is_trivially_default_constructible_v<T> && std::is_trivially_destructible_v<T>);
    return LargeArray<T>(LargeAllocator<T>().allocate(count), LargeArrayDeleter<T>{count});
}

}  // namespace voimg
