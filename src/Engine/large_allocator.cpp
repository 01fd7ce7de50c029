// SPDX-License-Identifier: MIT
#include "large_allocator.h"

#include <sys/mman.h>

#include <fstream>
#include <string>

namespace voimg {
namespace {

constexpr size_t kPageBytes = 4096;

size_t mappedLength(size_t bytes) { return (bytes + kPageBytes - 1) / kPageBytes * kPageBytes; }

// Whether the administrator left transparent huge pages on ("always" or "madvise").
bool hugePagesAllowed() {
    static const bool allowed = [] {
        std::string setting;
        std::getline(std::ifstream("/sys/kernel/mm/transparent_hugepage/enabled"), setting);
        return setting.find("[never]") == std::string::npos;
    }();
    return allowed;
}

}  // namespace

void* mapLargeBuffer(size_t bytes) {
    const size_t length = mappedLength(bytes);
    if (length < bytes) throw std::bad_alloc();
    void* mapping = ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping == MAP_FAILED) throw std::bad_alloc();
    // Kept in small pages where the kernel would put any aligned 2 MB of a mapping in a huge one.
    if (hugePagesAllowed()) ::madvise(mapping, length, MADV_NOHUGEPAGE);
    return mapping;
}

void unmapLargeBuffer(void* memory, size_t bytes) noexcept {
    if (memory != nullptr) ::munmap(memory, mappedLength(bytes));
}

}  // namespace voimg
