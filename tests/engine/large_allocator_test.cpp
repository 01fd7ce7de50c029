// SPDX-License-Identifier: MIT
// Large buffers: mapped on their own, 2 MB aligned, zeroed, in huge pages, given back whole; small ones
// from the heap.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "Engine/codec/codec.h"
#include "Engine/large_allocator.h"
#include "Engine/render_context.h"

namespace voimg {
namespace {

struct Mapping {
    uintptr_t begin = 0, end = 0;
    std::string flags;            // the VmFlags of /proc/self/smaps
    size_t anonHugePagesKiB = 0;  // its AnonHugePages
};

// The mapping that holds `address`, read from /proc/self/smaps; begin == end when there is none.
Mapping mappingOf(const void* address) {
    const auto at = reinterpret_cast<uintptr_t>(address);
    std::ifstream smaps("/proc/self/smaps");
    Mapping found;
    bool inside = false;
    for (std::string line; std::getline(smaps, line);) {
        uintptr_t begin = 0, end = 0;
        char dash = 0;
        std::istringstream fields(line);
        if (fields >> std::hex >> begin >> dash >> end && dash == '-' && line.find(':') > line.find(' ')) {
            inside = begin <= at && at < end;
            if (inside) found.begin = begin, found.end = end;
            continue;
        }
        if (inside && line.rfind("VmFlags:", 0) == 0) found.flags = line.substr(8);
        if (inside && line.rfind("AnonHugePages:", 0) == 0)
            std::istringstream(line.substr(14)) >> found.anonHugePagesKiB;
    }
    return found;
}

// Whether the kernel gives transparent huge pages (its setting is "always" or "madvise").
bool hugePagesOn() {
    std::string setting;
    std::getline(std::ifstream("/sys/kernel/mm/transparent_hugepage/enabled"), setting);
    return !setting.empty() && setting.find("[never]") == std::string::npos;
}

// Whether every page of [address, address + bytes) is mapped.
bool mapped(const void* address, size_t bytes) {
    std::vector<unsigned char> resident((bytes + 4095) / 4096);
    return ::mincore(const_cast<void*>(address), bytes, resident.data()) == 0;
}

// Whether the page at `address` is mapped by nothing.
bool unmapped(const void* address) {
    unsigned char resident = 0;
    return ::mincore(const_cast<void*>(address), 4096, &resident) != 0 && errno == ENOMEM;
}

TEST(LargeAllocator, MapsALargeBufferOnItsOwnZeroedAndAlignedForHugePages) {
    if (!kMapsLargeBuffers) GTEST_SKIP() << "large buffers stay on the heap under the address sanitizer";
    const size_t bytes = kLargeBufferBytes + 3 * 4096 + 5;
    auto* memory = static_cast<uint8_t*>(mapLargeBuffer(bytes));
    ASSERT_NE(memory, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(memory) % kHugePageBytes, 0u);
    bool zero = true;
    for (size_t i = 0; i < bytes; i += 997) zero = zero && memory[i] == 0;
    EXPECT_TRUE(zero);
    memory[0] = 1, memory[bytes - 1] = 2;  // the whole length is writable

    // The length rounded up to a whole huge page, in one huge page at once. The process is not left marked
    // for the kernel's background collapsing (the mapping's "hg" flag), which would scan it on another core.
    EXPECT_TRUE(mapped(memory, kHugePageBytes));
    EXPECT_TRUE(unmapped(memory + kHugePageBytes));
    const Mapping mapping = mappingOf(memory);
    EXPECT_EQ(mapping.flags.find(" hg"), std::string::npos) << mapping.flags;
    if (hugePagesOn()) EXPECT_GE(mapping.anonHugePagesKiB, kHugePageBytes / 1024);

    unmapLargeBuffer(memory, bytes);
    EXPECT_TRUE(unmapped(memory));
    EXPECT_TRUE(unmapped(memory + kHugePageBytes - 4096));
}

// Beyond its whole huge pages, a buffer's rest gets a huge page of its own only when it is large itself:
// a huge page is resident in full, so a small rest would cost far more memory than it needs.
TEST(LargeAllocator, TheRestBeyondWholeHugePagesGetsOneOnlyWhenLarge) {
    if (!kMapsLargeBuffers) GTEST_SKIP() << "large buffers stay on the heap under the address sanitizer";
    struct Case {
        size_t bytes, mapped;
    };
    for (const Case c :
         {Case{2 * kHugePageBytes + 1, 2 * kHugePageBytes + 4096},
          Case{kHugePageBytes + kLargeBufferBytes - 1, kHugePageBytes + kLargeBufferBytes},
          Case{kHugePageBytes + kLargeBufferBytes, 2 * kHugePageBytes}, Case{3 * kHugePageBytes, 3 * kHugePageBytes}}) {
        auto* memory = static_cast<uint8_t*>(mapLargeBuffer(c.bytes));
        EXPECT_EQ(reinterpret_cast<uintptr_t>(memory) % kHugePageBytes, 0u);
        memory[c.bytes - 1] = 1;
        // The pages beyond were given back as the mapping was aligned.
        EXPECT_TRUE(mapped(memory, c.mapped)) << c.bytes;
        EXPECT_TRUE(unmapped(memory + c.mapped)) << c.bytes;
        if (hugePagesOn())
            EXPECT_EQ(mappingOf(memory).anonHugePagesKiB, c.mapped / kHugePageBytes * kHugePageBytes / 1024) << c.bytes;
        unmapLargeBuffer(memory, c.bytes);
        EXPECT_TRUE(unmapped(memory + c.mapped - 4096)) << c.bytes;
    }
}

TEST(LargeAllocator, SmallBuffersComeFromTheHeap) {
    LargeAllocator<float> allocator;
    const size_t count = kLargeBufferBytes / sizeof(float) - 1;
    float* small = allocator.allocate(count);
    // Heap memory lies in a mapping of the heap's own, never one of exactly a huge page starting there.
    const Mapping mapping = mappingOf(small);
    EXPECT_FALSE(mapping.begin == reinterpret_cast<uintptr_t>(small) && mapping.end - mapping.begin == kHugePageBytes);
    small[0] = 1.0f, small[count - 1] = 2.0f;
    allocator.deallocate(small, count);
}

TEST(LargeAllocator, AVectorKeepsItsValuesAsItGrowsPastTheThreshold) {
    std::vector<uint32_t, LargeAllocator<uint32_t>> values;
    const size_t count = 3 * kLargeBufferBytes / sizeof(uint32_t);
    for (uint32_t i = 0; i < count; ++i) values.push_back(i * 2654435761u);
    bool same = true;
    for (uint32_t i = 0; i < count; ++i) same = same && values[i] == i * 2654435761u;
    EXPECT_TRUE(same);
    if (kMapsLargeBuffers) EXPECT_EQ(reinterpret_cast<uintptr_t>(values.data()) % kHugePageBytes, 0u);
    values.clear();
    values.shrink_to_fit();  // a large buffer given back by its size, as it was taken
    EXPECT_EQ(values.capacity(), 0u);
}

TEST(LargeAllocator, AnArrayIsGivenBackWhenItGoes) {
    if (!kMapsLargeBuffers) GTEST_SKIP() << "large buffers stay on the heap under the address sanitizer";
    const void* address = nullptr;
    {
        LargeArray<float> array = makeLargeArray<float>(kLargeBufferBytes);  // four times the threshold in bytes
        address = array.get();
        array[kLargeBufferBytes - 1] = 1.0f;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(address) % kHugePageBytes, 0u);
        EXPECT_FALSE(unmapped(address));
    }
    EXPECT_TRUE(unmapped(address));
}

TEST(LargeAllocator, ABitmapOfAMegabyteIsALargeBuffer) {
    if (!kMapsLargeBuffers) GTEST_SKIP() << "large buffers stay on the heap under the address sanitizer";
    DecodedImage decoded;
    decoded.width = 600, decoded.height = 500;
    decoded.pixels.assign(size_t(600) * 500 * 4, 200);
    const Image image = Image::withDecodedImage(std::move(decoded));
    RenderContext context(1);
    const Bitmap bitmap = context.createBitmap(image, image.extent(), BitmapFormat::Rgba8);
    ASSERT_EQ(bitmap.bytes.size(), size_t(600) * 500 * 4);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(bitmap.bytes.data()) % kHugePageBytes, 0u);
    EXPECT_EQ(bitmap.bytes[0], 200);
    EXPECT_EQ(bitmap.bytes.back(), 200);
}

}  // namespace
}  // namespace voimg
