// SPDX-License-Identifier: MIT
#include "large_allocator.h"

#include <sys/mman.h>

namespace voimg {
namespace {

constexpr size_t kPageBytes = 4096;

// Whole huge pages, and one more for what is left beyond them when that is large enough to gain from it:
// a huge page is resident in full from its first write, so a small rest stays in small pages.
size_t mappedLength(size_t bytes) {
    const size_t whole = bytes / kHugePageBytes * kHugePageBytes, rest = bytes - whole;
    return whole + (rest >= kLargeBufferBytes ? kHugePageBytes : (rest + kPageBytes - 1) / kPageBytes * kPageBytes);
}

}  // namespace

void* mapLargeBuffer(size_t bytes) {
    const size_t length = mappedLength(bytes);
    if (length < bytes || length + kHugePageBytes < length) throw std::bad_alloc();
    // A huge page needs an aligned address: map one page more than needed and give back what lies outside.
    void* mapping =
        ::mmap(nullptr, length + kHugePageBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping == MAP_FAILED) throw std::bad_alloc();
    auto* const start = static_cast<std::byte*>(mapping);
    const size_t head = (kHugePageBytes - reinterpret_cast<uintptr_t>(start) % kHugePageBytes) % kHugePageBytes;
    std::byte* const aligned = start + head;
    if (head > 0) ::munmap(start, head);
    ::munmap(aligned + length, kHugePageBytes - head);
#ifdef MADV_HUGEPAGE
    // Refused where transparent huge pages are off: small pages then, as for any mapping.
    ::madvise(aligned, length, MADV_HUGEPAGE);
#endif
    return aligned;
}

void unmapLargeBuffer(void* memory, size_t bytes) noexcept {
    if (memory != nullptr) ::munmap(memory, mappedLength(bytes));
}

}  // namespace voimg
