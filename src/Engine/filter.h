// SPDX-License-Identifier: MIT
// Named filters: the engine's catalogue of image operations, created by name, with inputs set and read
// by key and the result read under "outputImage".
//
// Each built-in filter declares its inputs once in a table (key, kind, default). A fresh filter has every
// input unset; `setDefaults` sets the declared defaults; an unset input reads as its default when the
// filter computes. Setting a key the filter does not declare, or a value of the wrong kind, throws
// std::invalid_argument. Filters of code outside the engine derive from Filter and keep their own inputs.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "geometry.h"
#include "image.h"

namespace voimg {

// Nothing, an image, a number, a four-vector, a colour or an affine transform.
using FilterValue = std::variant<std::monostate, Image, double, Vector4, Color, AffineTransform>;

struct FilterInput {
    std::string key;
    FilterValue defaultValue;  // its alternative is the input's kind; monostate for images
};

struct FilterDescription;

class Filter {
public:
    virtual ~Filter() = default;

    // The built-in filter of that name, or null for an unknown name.
    [[nodiscard]] static std::shared_ptr<Filter> filterWithName(std::string_view name);
    // The names of the built-in filters.
    [[nodiscard]] static std::vector<std::string> filterNames();

    [[nodiscard]] virtual std::string name() const = 0;
    virtual void setDefaults() = 0;
    virtual void setValue(const FilterValue& value, std::string_view key) = 0;
    // The stored value, or for "outputImage" the result; monostate for an unset input.
    [[nodiscard]] virtual FilterValue valueForKey(std::string_view key) const = 0;
    // The result; the missing image when the filter's image inputs are missing.
    [[nodiscard]] virtual Image outputImage() const = 0;
};

// A filter of the engine's catalogue.
class BuiltinFilter final : public Filter {
public:
    explicit BuiltinFilter(const FilterDescription& description);

    [[nodiscard]] std::string name() const override;
    [[nodiscard]] const std::vector<FilterInput>& inputs() const;
    void setDefaults() override;
    void setValue(const FilterValue& value, std::string_view key) override;
    [[nodiscard]] FilterValue valueForKey(std::string_view key) const override;
    [[nodiscard]] Image outputImage() const override;

private:
    [[nodiscard]] const FilterValue& input(std::string_view key) const;
    friend struct FilterArguments;

    const FilterDescription& description_;
    std::vector<FilterValue> values_;
};

}  // namespace voimg
