// SPDX-License-Identifier: MIT
#include "VoCoreCompositionFilter.h"

#include <stdexcept>

#include "Common/CoreGraphics/VoCompositionStage.h"
#include "Common/CoreGraphics/VoCoreUtils.h"

namespace vo {

namespace {
std::shared_ptr<const voimg::Kernel> gCompositionKernel;
std::shared_ptr<const voimg::Kernel> gFactorCompositionKernel;

// The foreground alone: the plain kernel returns its first sample at once.
void foregroundOnly(const float* const* samplers, const float*, float* out, size_t pixels) {
    std::copy_n(samplers[0], pixels * 4, out);
}

void factorComposition(const float* const* samplers, const float* scalars, float* out, size_t pixels) {
    factorComposite(samplers[0], samplers[1], scalars[0], out, pixels);
}

std::shared_ptr<const voimg::Kernel> firstKernel(const std::string& source) {
    const auto kernels = voimg::Kernel::kernelsWithString(source);
    return kernels.empty() ? nullptr : kernels.front();
}
}  // namespace

std::string VoCoreCompositionFilter::filterString() {
    std::string s;
    s += "kernel vec4 compositionFilter(sampler image, sampler background)";
    s += "{";
    s += "\tvec4 top = sample(image, samplerCoord(image)); return top;";
    s += "\tvec4 bottom = sample(background, samplerCoord(background));";
    s += "\tbottom*=(1.0-top.a);";
    s += "\treturn top+bottom;";
    s += "}";
    return s;
}

std::string VoCoreCompositionFilter::factorFilterString() {
    std::string s;
    s += "kernel vec4 compositionFilter(sampler image, sampler background, float factor)";
    s += "{";
    s += "\tvec4 top = sample(image, samplerCoord(image));";
    s += "\tvec4 bottom = sample(background, samplerCoord(background));";
    s += "\ttop*=factor;";
    s += "\tbottom*=(1.0-top.a);";
    s += "\treturn top+bottom;";
    s += "}";
    return s;
}

std::shared_ptr<const voimg::Kernel> VoCoreCompositionFilter::compositionKernel() { return gCompositionKernel; }

std::shared_ptr<const voimg::Kernel> VoCoreCompositionFilter::factorCompositionKernel() {
    return gFactorCompositionKernel;
}

VoCoreCompositionFilter::VoCoreCompositionFilter() {
    if (!gCompositionKernel) {
        // The native stages stand for the two kernel texts; registering them is this process's "compile".
        voimg::Kernel::registerNativeKernel(filterString(), "compositionFilter", foregroundOnly);
        voimg::Kernel::registerNativeKernel(factorFilterString(), "compositionFilter", factorComposition);
        gCompositionKernel = firstKernel(filterString());
        gFactorCompositionKernel = firstKernel(factorFilterString());
    }
}

VoCoreCompositionFilter::~VoCoreCompositionFilter() {
    clearSrcSampler();
    clearSrcBgSampler();
}

std::map<std::string, std::map<std::string, std::string>> VoCoreCompositionFilter::customAttributes() {
    return {{"inputImage", {}},
            {"inputBackgroundImage", {}},
            {"inputTransform", {}},
            {"inputFactor", {{"CIAttributeType", "CIAttributeTypeScalar"}}}};
}

void VoCoreCompositionFilter::clearSrcSampler() { src_.reset(); }

void VoCoreCompositionFilter::clearSrcBgSampler() { srcBg_.reset(); }

void VoCoreCompositionFilter::updateImageWithInputImageBackgroundImageFactorTransformBounds(
    const CIImage& image, const CIImage& backgroundImage, float factor, const NSAffineTransform* transform,
    const CIVector* bounds) {
    if (inputImage_.isNull() || !(inputImage_ == image)) {
        clearSrcSampler();
        inputImage_ = image;
    }
    if (inputBackgroundImage_.isNull() || !(inputBackgroundImage_ == backgroundImage)) {
        clearSrcBgSampler();
        inputBackgroundImage_ = backgroundImage;
    }
    if (transform && (!inputTransform_ || !(*inputTransform_ == *transform))) {
        if (src_) clearSrcSampler();
        inputTransform_ = *transform;
    }
    if (bounds) inputBounds_ = *bounds;
    inputFactor_ = factor;
}

void VoCoreCompositionFilter::setValue(const voimg::FilterValue& value, std::string_view key) {
    const bool none = std::holds_alternative<std::monostate>(value);
    if (key == "inputImage" && (none || std::holds_alternative<CIImage>(value))) {
        inputImage_ = none ? CIImage() : std::get<CIImage>(value);
    } else if (key == "inputBackgroundImage" && (none || std::holds_alternative<CIImage>(value))) {
        inputBackgroundImage_ = none ? CIImage() : std::get<CIImage>(value);
    } else if (key == "inputFactor" && std::holds_alternative<double>(value)) {
        inputFactor_ = float(std::get<double>(value));
    } else if (key == "inputTransform" && (none || std::holds_alternative<NSAffineTransform>(value))) {
        inputTransform_ = none ? std::nullopt : std::optional(std::get<NSAffineTransform>(value));
    } else if (key == "inputBounds" && (none || std::holds_alternative<CIVector>(value))) {
        inputBounds_ = none ? std::nullopt : std::optional(std::get<CIVector>(value));
    } else {
        throw std::invalid_argument("VoCoreCompositionFilter: no input " + std::string(key) + " of that kind");
    }
}

voimg::FilterValue VoCoreCompositionFilter::valueForKey(std::string_view key) const {
    if (key == "outputImage") return outputImage();
    if (key == "inputImage") return inputImage_;
    if (key == "inputBackgroundImage") return inputBackgroundImage_;
    if (key == "inputFactor") return double(inputFactor_);
    if (key == "inputTransform") return inputTransform_ ? voimg::FilterValue(*inputTransform_) : std::monostate{};
    if (key == "inputBounds") return inputBounds_ ? voimg::FilterValue(*inputBounds_) : std::monostate{};
    throw std::invalid_argument("VoCoreCompositionFilter has no input " + std::string(key));
}

CIImage VoCoreCompositionFilter::outputImage() const {
    if (!src_) {
        std::optional<std::array<float, 6>> matrix;
        if (inputTransform_) {
            const NSAffineTransform& t = *inputTransform_;
            matrix = std::array<float, 6>{t.m11, t.m12, t.m21, t.m22, t.tX, t.tY};
        }
        src_ = std::make_shared<const voimg::Sampler>(inputImage_, matrix);
    }
    if (!srcBg_) srcBg_ = std::make_shared<const voimg::Sampler>(inputBackgroundImage_);

    CGRect extent = voimg::unite(src_->extent(), srcBg_->extent());
    if (srcBg_->extent().width == 0) extent = src_->extent();
    if (inputBounds_) extent = voimg::intersect(extent, VoCoreUtils::coreRectFromVector(*inputBounds_));
    return gFactorCompositionKernel->apply(extent, {src_, srcBg_, inputFactor_});
}

}  // namespace vo
