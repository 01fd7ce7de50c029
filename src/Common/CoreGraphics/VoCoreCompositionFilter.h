// SPDX-License-Identifier: MIT
// VoCoreCompositionFilter: lays a foreground, optionally moved by an affine transform and faded by a
// factor, over a background, limited to optional bounds.
//
// Inputs are set and read by key: "inputImage", "inputBackgroundImage", "inputFactor" (number),
// "inputTransform" (affine transform or nothing), "inputBounds" (vector x, y, w, h or nothing). The filter
// keeps a sampler of each image and rebuilds one only when its image (compared by identity) or the
// transform changes, so a caller composing every frame pays for samplers once. The two kernels are made
// once per process, on the first filter's construction.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "Common/CoreGraphics/VoGeometry.h"
#include "Engine/filter.h"
#include "Engine/kernel.h"

namespace vo {

class VoCoreCompositionFilter : public voimg::Filter {
public:
    VoCoreCompositionFilter();
    ~VoCoreCompositionFilter() override;

    // The kernel texts, one line each without separators.
    [[nodiscard]] static std::string filterString();
    [[nodiscard]] static std::string factorFilterString();
    // The process-wide kernels; null until the first filter was made.
    [[nodiscard]] static std::shared_ptr<const voimg::Kernel> compositionKernel();
    [[nodiscard]] static std::shared_ptr<const voimg::Kernel> factorCompositionKernel();

    // Declared attributes: "inputImage", "inputBackgroundImage", "inputTransform" with no attributes and
    // "inputFactor" of type "CIAttributeTypeScalar"; "inputBounds" is not declared.
    [[nodiscard]] static std::map<std::string, std::map<std::string, std::string>> customAttributes();

    void clearSrcSampler();
    void clearSrcBgSampler();
    // Keeps the samplers whenever it can; a missing transform or bounds keeps the current one.
    void updateImageWithInputImageBackgroundImageFactorTransformBounds(const CIImage& image,
                                                                       const CIImage& backgroundImage, float factor,
                                                                       const NSAffineTransform* transform,
                                                                       const CIVector* bounds);

    [[nodiscard]] std::string name() const override { return "VoCoreCompositionFilter"; }
    void setDefaults() override {}
    void setValue(const voimg::FilterValue& value, std::string_view key) override;
    [[nodiscard]] voimg::FilterValue valueForKey(std::string_view key) const override;
    [[nodiscard]] CIImage outputImage() const override;

    // The cached samplers (null when not built), for callers that check reuse.
    [[nodiscard]] const std::shared_ptr<const voimg::Sampler>& src() const { return src_; }
    [[nodiscard]] const std::shared_ptr<const voimg::Sampler>& srcBg() const { return srcBg_; }

private:
    CIImage inputImage_;
    CIImage inputBackgroundImage_;
    float inputFactor_ = 0;
    std::optional<NSAffineTransform> inputTransform_;
    std::optional<CIVector> inputBounds_;
    // Built lazily by outputImage, which is otherwise const.
    mutable std::shared_ptr<const voimg::Sampler> src_;
    mutable std::shared_ptr<const voimg::Sampler> srcBg_;
};

}  // namespace vo
