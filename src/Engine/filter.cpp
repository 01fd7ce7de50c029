// SPDX-License-Identifier: MIT
#include "filter.h"

#include <stdexcept>

namespace voimg {

// Typed access to a filter's inputs for the output functions below.
struct FilterArguments {
    const BuiltinFilter& filter;
    [[nodiscard]] Image image(std::string_view key) const { return std::get<Image>(filter.input(key)); }
    [[nodiscard]] double number(std::string_view key) const { return std::get<double>(filter.input(key)); }
    [[nodiscard]] Vector4 vector(std::string_view key) const { return std::get<Vector4>(filter.input(key)); }
    [[nodiscard]] Color color(std::string_view key) const { return std::get<Color>(filter.input(key)); }
    [[nodiscard]] AffineTransform transform(std::string_view key) const {
        return std::get<AffineTransform>(filter.input(key));
    }
};

struct FilterDescription {
    std::string name;
    std::vector<FilterInput> inputs;
    Image (*output)(const FilterArguments&);
};

namespace {
constexpr Vector4 kInfiniteVector{kInfiniteRect.x, kInfiniteRect.y, kInfiniteRect.width, kInfiniteRect.height};

const std::vector<FilterDescription>& catalogue() {
    static const std::vector<FilterDescription> filters = {
        {"CIAffineTransform",
         {{"inputImage", std::monostate{}}, {"inputTransform", AffineTransform{}}},
         [](const FilterArguments& a) { return a.image("inputImage").transformed(a.transform("inputTransform")); }},
        {"CICrop",
         {{"inputImage", std::monostate{}}, {"inputRectangle", kInfiniteVector}},
         [](const FilterArguments& a) {
             const Vector4 v = a.vector("inputRectangle");
             return a.image("inputImage").croppedTo({v.x, v.y, v.z, v.w});
         }},
        {"CIConstantColorGenerator",
         {{"inputColor", Color{1, 0, 0, 1}}},
         [](const FilterArguments& a) { return Image::withColor(a.color("inputColor")); }},
        {"CISourceOverCompositing",
         {{"inputImage", std::monostate{}}, {"inputBackgroundImage", std::monostate{}}},
         [](const FilterArguments& a) {
             return a.image("inputImage").compositedOver(a.image("inputBackgroundImage"));
         }},
    };
    return filters;
}
}  // namespace

std::shared_ptr<Filter> Filter::filterWithName(std::string_view name) {
    for (const FilterDescription& d : catalogue())
        if (d.name == name) return std::make_shared<BuiltinFilter>(d);
    return nullptr;
}

std::vector<std::string> Filter::filterNames() {
    std::vector<std::string> names;
    for (const FilterDescription& d : catalogue()) names.push_back(d.name);
    return names;
}

BuiltinFilter::BuiltinFilter(const FilterDescription& description)
    : description_(description), values_(description.inputs.size()) {}

std::string BuiltinFilter::name() const { return description_.name; }

const std::vector<FilterInput>& BuiltinFilter::inputs() const { return description_.inputs; }

void BuiltinFilter::setDefaults() {
    for (size_t i = 0; i < values_.size(); ++i)
        if (!std::holds_alternative<std::monostate>(description_.inputs[i].defaultValue))
            values_[i] = description_.inputs[i].defaultValue;
}

void BuiltinFilter::setValue(const FilterValue& value, std::string_view key) {
    for (size_t i = 0; i < values_.size(); ++i) {
        const FilterInput& in = description_.inputs[i];
        if (in.key != key) continue;
        const bool isImageInput = std::holds_alternative<std::monostate>(in.defaultValue);
        const bool fits = std::holds_alternative<std::monostate>(value) ||
                          (isImageInput ? std::holds_alternative<Image>(value)
                                        : value.index() == in.defaultValue.index());
        if (!fits) throw std::invalid_argument(description_.name + ": wrong kind of value for " + std::string(key));
        values_[i] = value;
        return;
    }
    throw std::invalid_argument(description_.name + " has no input " + std::string(key));
}

const FilterValue& BuiltinFilter::input(std::string_view key) const {
    static const FilterValue noImage = Image();
    for (size_t i = 0; i < values_.size(); ++i) {
        if (description_.inputs[i].key != key) continue;
        if (!std::holds_alternative<std::monostate>(values_[i])) return values_[i];
        const FilterValue& fallback = description_.inputs[i].defaultValue;
        return std::holds_alternative<std::monostate>(fallback) ? noImage : fallback;
    }
    throw std::invalid_argument(description_.name + " has no input " + std::string(key));
}

FilterValue BuiltinFilter::valueForKey(std::string_view key) const {
    if (key == "outputImage") return outputImage();
    for (size_t i = 0; i < values_.size(); ++i)
        if (description_.inputs[i].key == key) return values_[i];
    throw std::invalid_argument(description_.name + " has no input " + std::string(key));
}

Image BuiltinFilter::outputImage() const { return description_.output(FilterArguments{*this}); }

}  // namespace voimg
