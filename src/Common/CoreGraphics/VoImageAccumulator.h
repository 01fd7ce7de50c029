// SPDX-License-Identifier: MIT
// VoImageAccumulator: the toolkit's image accumulator. Each instance gets a serial number from a
// process-wide counter (the first one made is 1); it is cleared when destroyed.
#pragma once

#include <cstdint>

#include "Common/CoreGraphics/VoGeometry.h"
#include "Engine/image_accumulator.h"

namespace vo {

class VoImageAccumulator : public voimg::ImageAccumulator {
public:
    VoImageAccumulator(const CGRect& extent, voimg::AccumulatorFormat format);
    // The colour space argument is accepted for the platform's form of the call; pixels are always stored
    // in the engine's working space.
    VoImageAccumulator(const CGRect& extent, voimg::AccumulatorFormat format, const void* colorSpace);
    ~VoImageAccumulator() override;

    [[nodiscard]] int32_t sequence() const { return sequence_; }
    // How many accumulators were made in this process so far.
    [[nodiscard]] static int32_t totalSequence();

private:
    CIImage store_;  // declared for the platform's layout; never set or read
    int32_t sequence_;
};

}  // namespace vo
