// SPDX-License-Identifier: MIT
// Large buffers: mapped on their own, zeroed, given back whole, in small pages faulted in as they are
// written; small ones from the heap.
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

// Whether the page at `address` is resident.
bool resident(const void* address) {
    unsigned char in = 0;
    return ::mincore(const_cast<void*>(address), 4096, &in) == 0 && (in & 1) != 0;
}

TEST(LargeAllocator, MapsALargeBufferOnItsOwnInSmallPagesFaultedInAsWritten) {
    if (!kMapsLargeBuffers) GTEST_SKIP() << "large buffers stay on the heap under the address sanitizer";
    for (const size_t bytes : {kLargeBufferBytes + 3 * 4096 + 5, size_t(6) << 20}) {
        auto* memory = static_cast<uint8_t*>(mapLargeBuffer(bytes));
        ASSERT_NE(memory, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(memory) % 4096, 0u);
        const size_t length = (bytes + 4095) / 4096 * 4096;
        EXPECT_TRUE(mapped(memory, length)) << bytes;
        EXPECT_FALSE(resident(memory + 4096)) << bytes;  // nothing filled in ahead of its use
        memory[4096] = 1;
        EXPECT_TRUE(resident(memory + 4096)) << bytes;
        EXPECT_FALSE(resident(memory + 2 * 4096)) << bytes;
        bool zero = true;
        for (size_t i = 0; i < bytes; i += 997) zero = zero && (i == 4096 || memory[i] == 0);
        EXPECT_TRUE(zero) << bytes;
        // Written in full, it is still in small pages, whatever the kernel's setting, and the process is
        // not marked for the kernel's background collapsing into huge pages (the "hg" flag).
        for (size_t i = 0; i < bytes; i += 4096) memory[i] = 2;
        memory[bytes - 1] = 3;
        const Mapping mapping = mappingOf(memory);
        EXPECT_EQ(mapping.anonHugePagesKiB, 0u) << bytes;
        EXPECT_EQ(mapping.flags.find(" hg"), std::string::npos) << mapping.flags;
        unmapLargeBuffer(memory, bytes);
        EXPECT_TRUE(unmapped(memory)) << bytes;
        EXPECT_TRUE(unmapped(memory + length - 4096)) << bytes;
    }
}

TEST(LargeAllocator, SmallBuffersComeFromTheHeap) {
    LargeAllocator<float> allocator;
    const size_t count = kLargeBufferBytes / sizeof(float) - 1;
    float* small = allocator.allocate(count);
    // Heap memory lies in the heap's own mappings, never in one of exactly its length starting there, as a
    // mapping of ours would.
    const Mapping mapping = mappingOf(small);
    const size_t length = (count * sizeof(float) + 4095) / 4096 * 4096;
    EXPECT_FALSE(mapping.begin == reinterpret_cast<uintptr_t>(small) && mapping.end - mapping.begin == length);
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
    if (kMapsLargeBuffers) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(values.data()) % 4096, 0u);  // mapped on its own
    }
    values.clear();
    values.shrink_to_fit();  // a large buffer given back by its size, as it was taken
    EXPECT_EQ(values.capacity(), 0u);
}

TEST(LargeAllocator, ResizingALargeUninitialisedVectorWritesNothing) {
    if (!kMapsLargeBuffers) GTEST_SKIP() << "large buffers stay on the heap under the address sanitizer";
    std::vector<uint8_t, UninitialisedAllocator<uint8_t>> values;
    const size_t count = 2 * kLargeBufferBytes;
    values.resize(count);
    ASSERT_EQ(values.size(), count);
    // No page faulted in by resizing: they come in as the values are written, and read as zeros until then.
    EXPECT_FALSE(resident(values.data() + 4096));
    EXPECT_FALSE(resident(values.data() + count - 4096));
    EXPECT_EQ(values[4096], 0);
    values[count - 4096] = 7;
    EXPECT_TRUE(resident(values.data() + count - 4096));
    EXPECT_EQ(values[count - 4096], 7);
    // Values given are set as with any allocator.
    std::vector<uint8_t, UninitialisedAllocator<uint8_t>> filled(count, 9);
    EXPECT_EQ(filled[0], 9);
    EXPECT_EQ(filled[count - 1], 9);
}

TEST(LargeAllocator, AnArrayIsGivenBackWhenItGoes) {
    if (!kMapsLargeBuffers) GTEST_SKIP() << "large buffers stay on the heap under the address sanitizer";
    const void* address = nullptr;
    {
        LargeArray<float> array = makeLargeArray<float>(kLargeBufferBytes);  // four times the threshold in bytes
        address = array.get();
        array[kLargeBufferBytes - 1] = 1.0f;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(address) % 4096, 0u);
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
    // Mapped on its own: the heap's allocations of that size start past a header, inside their page.
    EXPECT_EQ(reinterpret_cast<uintptr_t>(bitmap.bytes.data()) % 4096, 0u);
    EXPECT_EQ(bitmap.bytes[0], 200);
    EXPECT_EQ(bitmap.bytes.back(), 200);
}

}  // namespace
}  // namespace voimg
