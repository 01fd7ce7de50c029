// SPDX-License-Identifier: MIT
// Reading numbers and words out of property-list values and path texts, with the platform string rules
// the system utilities are written against:
// - a number is read from the start of a text, after leading white space; text that does not start with
//   a number reads as 0 ("2.6 GHz" reads 2.6 as a float and 2 as an integer);
// - splitting keeps empty pieces ("a  b" split at " " gives "a", "", "b") and splits "" into one piece;
// - a missing value splits into no pieces at all.
#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>
#include <optional>
#include <string>
#include <string_view>

namespace vo::detail {

// Integer value of a text: INT_MAX / INT_MIN when it does not fit.
[[nodiscard]] int intValue(std::string_view text);
[[nodiscard]] int intValue(const QString& text);
// Integer value of any property-list value: numbers are truncated toward zero, booleans give 0 or 1,
// texts are read as above; anything else, and a missing value, gives 0.
[[nodiscard]] int intValue(const QVariant& value);
// Float value of a text, 0 when it does not start with a number.
[[nodiscard]] float floatValue(const QString& text);
// A float truncated toward zero, limited to the int range; NaN gives 0.
[[nodiscard]] int truncatedInt(float value);

// The text of a value, or nothing when the value is missing.
[[nodiscard]] std::optional<QString> textValue(const QVariant& value);
// The pieces of `text` between occurrences of `separator`; no pieces for a missing text.
[[nodiscard]] QStringList components(const std::optional<QString>& text, const QString& separator);
// Equal when compared without regard to case.
[[nodiscard]] bool equalsIgnoringCase(const QString& a, const QString& b);

// Path texts: the last component ignores trailing slashes ("/a/b/" gives "b", "/" gives "/"); the
// extension is the text after the last dot of the last component, empty when there is none.
[[nodiscard]] std::string lastPathComponent(const std::string& path);
[[nodiscard]] std::string pathExtension(const std::string& path);

}  // namespace vo::detail
