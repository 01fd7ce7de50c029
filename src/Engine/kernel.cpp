// SPDX-License-Identifier: MIT
#include "kernel.h"

#include <map>
#include <mutex>

#include "node.h"

namespace voimg {

namespace {
struct Registry {
    std::mutex mutex;
    std::multimap<std::string, std::shared_ptr<const Kernel>> kernels;
};

Registry& registry() {
    static Registry r;
    return r;
}

class KernelNode final : public Node {
public:
    KernelNode(const Rect& extent, KernelFunction function, std::vector<KernelArgument> arguments)
        : Node(extent), function_(function), arguments_(std::move(arguments)) {
        for (const KernelArgument& a : arguments_) {
            if (const auto* s = std::get_if<std::shared_ptr<const Sampler>>(&a)) samplers_.push_back(*s);
            else scalars_.push_back(std::get<float>(a));
        }
    }

    void render(const TileView& out) const override {
        const PixelRect inside = clipToExtent(out.rect, extent());
        if (!(inside == out.rect)) out.clear();
        if (inside.isEmpty()) return;
        std::vector<TileBuffer> inputs;
        inputs.reserve(samplers_.size());
        for (const auto& sampler : samplers_) {
            inputs.emplace_back(inside);
            const Image& image = sampler->sampledImage();
            if (image.isNull()) inputs.back().view().clear();  // a sampler of nothing reads transparent
            else image.node()->render(inputs.back().view());
        }
        std::vector<const float*> rows(samplers_.size());
        for (int64_t y = inside.y; y < inside.maxY(); ++y) {
            for (size_t i = 0; i < inputs.size(); ++i) rows[i] = inputs[i].view().row(y);
            function_(rows.data(), scalars_.data(), out.pixel(inside.x, y), size_t(inside.width));
        }
    }

private:
    KernelFunction function_;
    std::vector<KernelArgument> arguments_;
    std::vector<std::shared_ptr<const Sampler>> samplers_;
    std::vector<float> scalars_;
};
}  // namespace

Sampler::Sampler(const Image& image, const std::optional<std::array<float, 6>>& m) : image_(image), matrix_(m) {
    sampled_ = m ? image.transformed({(*m)[0], (*m)[1], (*m)[2], (*m)[3], (*m)[4], (*m)[5]}) : image;
}

void Kernel::registerNativeKernel(const std::string& source, const std::string& name, KernelFunction function) {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    r.kernels.emplace(source, std::make_shared<const Kernel>(name, function));
}

std::vector<std::shared_ptr<const Kernel>> Kernel::kernelsWithString(const std::string& source) {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    std::vector<std::shared_ptr<const Kernel>> found;
    for (auto [it, end] = r.kernels.equal_range(source); it != end; ++it) found.push_back(it->second);
    return found;
}

Image Kernel::apply(const Rect& extent, const std::vector<KernelArgument>& arguments) const {
    return Image(std::make_shared<KernelNode>(extent, function_, arguments));
}

}  // namespace voimg
