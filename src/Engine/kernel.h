// SPDX-License-Identifier: MIT
// Custom per-pixel kernels and the samplers they read.
//
// The engine does not compile a kernel language. A kernel is a native per-pixel function registered under
// the exact source text of the kernel it stands for; `kernelsWithString` finds the functions registered for
// a text, as a compiler would return the kernels the text defines. Applying a kernel gives an image whose
// pixels are the function of the samplers' pixels at the same place, over an explicit extent.
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "geometry.h"
#include "image.h"

namespace voimg {

// An image read with linear filtering, optionally through an affine matrix (m11, m12, m21, m22, tX, tY).
// Its extent is the image's extent through the matrix.
class Sampler {
public:
    Sampler(const Image& image, const std::optional<std::array<float, 6>>& affineMatrix = std::nullopt);

    [[nodiscard]] const Image& image() const { return image_; }
    [[nodiscard]] const std::optional<std::array<float, 6>>& affineMatrix() const { return matrix_; }
    // The image as the kernel sees it: moved by the matrix.
    [[nodiscard]] const Image& sampledImage() const { return sampled_; }
    [[nodiscard]] Rect extent() const { return sampled_.extent(); }

private:
    Image image_;
    std::optional<std::array<float, 6>> matrix_;
    Image sampled_;
};

using KernelArgument = std::variant<std::shared_ptr<const Sampler>, float>;

// The per-pixel stage: `samplers[i]` points at `pixels` premultiplied linear RGBA pixels of sampler i (in
// argument order), `scalars` holds the float arguments in order; the function writes `pixels` pixels.
using KernelFunction = void (*)(const float* const* samplers, const float* scalars, float* out, size_t pixels);

class Kernel {
public:
    Kernel(std::string name, KernelFunction function) : name_(std::move(name)), function_(function) {}

    // Makes `function` the kernel named `name` of the source text `source`.
    static void registerNativeKernel(const std::string& source, const std::string& name, KernelFunction function);
    // The kernels registered for exactly this source text (none for any other text).
    [[nodiscard]] static std::vector<std::shared_ptr<const Kernel>> kernelsWithString(const std::string& source);

    [[nodiscard]] const std::string& name() const { return name_; }
    [[nodiscard]] KernelFunction function() const { return function_; }
    // The image of this kernel over `extent`; pixels outside it are transparent.
    [[nodiscard]] Image apply(const Rect& extent, const std::vector<KernelArgument>& arguments) const;

private:
    std::string name_;
    KernelFunction function_;
};

}  // namespace voimg
