// SPDX-License-Identifier: MIT
#include "large_allocator.h"

#include <sys/mman.h>

#include <fstream>
#include <string>

namespace voimg {
namespace {

constexpr size_t kPageBytes = 4096;

// Whole huge pages, and one more for what is left beyond them when that is large enough to gain from it:
// a huge page is resident in full from its first write, so a small rest stays in small pages.
size_t mappedLength(size_t bytes) {
    const size_t whole = bytes / kHugePageBytes * kHugePageBytes, rest = bytes - whole;
    return whole + (rest >= kLargeBufferBytes ? kHugePageBytes : (rest + kPageBytes - 1) / kPageBytes * kPageBytes);
}

#ifndef MADV_POPULATE_WRITE
constexpr int MADV_POPULATE_WRITE = 23;  // Linux 5.14; older kernels refuse it
#endif

// Whether the administrator left transparent huge pages on ("always" or "madvise").
bool hugePagesAllowed() {
    static const bool allowed = [] {
        std::string setting;
        std::getline(std::ifstream("/sys/kernel/mm/transparent_hugepage/enabled"), setting);
        return setting.find("[never]") == std::string::npos;
    }();
    return allowed;
}

// Puts the whole huge pages of a fresh mapping in huge pages now. Marked for them (MADV_HUGEPAGE), each
// fault of the mapping would bring in 2 MB, but the mark also has the kernel's khugepaged scan the process
// for pages to merge, on another core while the render runs (1 to 9 ms a run on our two-core VM). So the
// whole huge pages are filled in at once and the mark is taken off again, which leaves khugepaged nothing
// to do. Where filling in is refused (before Linux 5.14) the mark stays, and the pages come in as they are
// first written.
void fillInHugePages(std::byte* memory, size_t length) {
    const size_t whole = length / kHugePageBytes * kHugePageBytes;
    if (whole == 0 || !hugePagesAllowed()) return;
    if (::madvise(memory, length, MADV_HUGEPAGE) != 0) return;
    if (::madvise(memory, whole, MADV_POPULATE_WRITE) == 0) ::madvise(memory, length, MADV_NOHUGEPAGE);
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
    fillInHugePages(aligned, length);
    return aligned;
}

void unmapLargeBuffer(void* memory, size_t bytes) noexcept {
    if (memory != nullptr) ::munmap(memory, mappedLength(bytes));
}

}  // namespace voimg
