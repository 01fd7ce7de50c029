// SPDX-License-Identifier: MIT
// Named filters: the engine's catalogue of image operations, created by name, with inputs set and read
// by key and the result read under "outputImage".
//
// Each filter declares its inputs once in a table (key, kind, default). A fresh filter has every input
// unset; `setDefaults` sets the declared defaults; an unset input reads as its default when the filter
// computes. Setting a key the filter does not declare, or a value of the wrong kind, throws
// std::invalid_argument.
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
    // The filter of that name, or null for an unknown name.
    [[nodiscard]] static std::shared_ptr<Filter> filterWithName(std::string_view name);
    // The names the engine knows.
    [[nodiscard]] static std::vector<std::string> filterNames();

    [[nodiscard]] const std::string& name() const;
    [[nodiscard]] const std::vector<FilterInput>& inputs() const;
    void setDefaults();
    void setValue(const FilterValue& value, std::string_view key);
    // The stored value, or for "outputImage" the result; monostate for an unset input.
    [[nodiscard]] FilterValue valueForKey(std::string_view key) const;
    // The result; the missing image when the filter's image inputs are missing.
    [[nodiscard]] Image outputImage() const;

    explicit Filter(const FilterDescription& description);

private:
    [[nodiscard]] const FilterValue& input(std::string_view key) const;
    friend struct FilterArguments;

    const FilterDescription& description_;
    std::vector<FilterValue> values_;
};

}  // namespace voimg
