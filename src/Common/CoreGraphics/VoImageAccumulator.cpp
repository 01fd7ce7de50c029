// SPDX-License-Identifier: MIT
#include "VoImageAccumulator.h"

namespace vo {

namespace {
int32_t gTotalSequence = 0;  // only grows; not guarded, accumulators are made on the main thread
}

VoImageAccumulator::VoImageAccumulator(const CGRect& extent, voimg::AccumulatorFormat format)
    : voimg::ImageAccumulator(extent, format), sequence_(++gTotalSequence) {}

VoImageAccumulator::VoImageAccumulator(const CGRect& extent, voimg::AccumulatorFormat format, const void*)
    : VoImageAccumulator(extent, format) {}

VoImageAccumulator::~VoImageAccumulator() { clear(); }

int32_t VoImageAccumulator::totalSequence() { return gTotalSequence; }

}  // namespace vo
