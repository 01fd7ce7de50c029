// SPDX-License-Identifier: MIT
// Property lists (XML or binary) as Qt values, through libplist: dictionaries are QVariantMap, arrays
// QVariantList, strings QString, integers qint64, reals double, booleans bool, data QByteArray, dates
// QDateTime (UTC).
#pragma once

#include <QVariant>
#include <optional>
#include <string>

namespace vo::detail {

// The value in `bytes`, or nothing when they hold no property list.
[[nodiscard]] std::optional<QVariant> propertyListFromBytes(const std::string& bytes);
// The value in the file at `path`, or nothing when it cannot be read or holds no property list.
[[nodiscard]] std::optional<QVariant> propertyListFromFile(const std::string& path);
// `value` as an XML property list. Values of other types are written as their text.
[[nodiscard]] std::string xmlPropertyList(const QVariant& value);

}  // namespace vo::detail
