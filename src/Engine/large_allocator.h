// SPDX-License-Identifier: MIT
// Memory for pixel buffers and the other large arrays of a render.
//
// A fresh page costs a page fault at its first write. A render touches megabytes of fresh memory (its
// bitmaps, its pipeline's buffers) and so takes hundreds of faults, which cost far more than the writes
// themselves, on a virtual machine most of all. Buffers of kLargeBufferBytes or more are therefore mapped
// from the kernel on their own, 2 MB aligned, in transparent huge pages filled in as they are mapped: one
// huge page replaces 512 faults. A huge page is resident in full, so the length is rounded up to one only
// where the rest beyond the whole ones is large too. Smaller buffers come from the heap as usual. Where the
// kernel gives no huge pages, the mapping works as any other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>

namespace voimg {

inline constexpr size_t kLargeBufferBytes = size_t(512) << 10;
inline constexpr size_t kHugePageBytes = size_t(2) << 20;

// Zeroed memory for `bytes` (at least kLargeBufferBytes), 2 MB aligned; throws std::bad_alloc.
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
