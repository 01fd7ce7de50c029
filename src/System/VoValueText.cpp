// SPDX-License-Identifier: MIT
#include "VoValueText_p.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>

namespace vo::detail {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

std::string_view skipBlanks(std::string_view s) {
    size_t i = 0;
    while (i < s.size() && isBlank(s[i])) ++i;
    return s.substr(i);
}

}  // namespace

int intValue(std::string_view text) {
    std::string_view s = skipBlanks(text);
    bool negative = false;
    if (!s.empty() && (s[0] == '+' || s[0] == '-')) {
        negative = s[0] == '-';
        s.remove_prefix(1);
    }
    long long value = 0;
    for (char c : s) {
        if (!isDigit(c)) break;
        value = value * 10 + (c - '0');
        if (value > 1LL + INT_MAX) break;  // saturated either way; stop before the accumulator overflows
    }
    if (negative) return value > 1LL + INT_MAX ? INT_MIN : int(-value);
    return value > INT_MAX ? INT_MAX : int(value);
}

int intValue(const QString& text) { return intValue(text.toStdString()); }

int intValue(const QVariant& value) {
    if (!value.isValid() || value.isNull()) return 0;
    switch (value.typeId()) {
        case QMetaType::Bool:
            return value.toBool() ? 1 : 0;
        case QMetaType::Double:
        case QMetaType::Float: {
            const double d = value.toDouble();
            if (std::isnan(d)) return 0;
            return int(std::clamp(std::trunc(d), double(INT_MIN), double(INT_MAX)));
        }
        case QMetaType::Int:
        case QMetaType::UInt:
        case QMetaType::LongLong:
        case QMetaType::ULongLong:
            // Like the platform's number: the low 32 bits of a wider integer.
            return int(std::uint32_t(value.toULongLong()));
        case QMetaType::QString:
            return intValue(value.toString());
        default:
            return 0;
    }
}

float floatValue(const QString& text) {
    const std::string utf8 = text.toStdString();
    std::string_view s = skipBlanks(utf8);
    // The longest prefix of the form [sign] digits [. digits] [e [sign] digits]; no inf, nan or hex.
    size_t n = 0;
    bool negative = false;
    if (n < s.size() && (s[n] == '+' || s[n] == '-')) negative = s[n++] == '-';
    const size_t start = n;
    size_t digits = 0;
    while (n < s.size() && isDigit(s[n])) ++n, ++digits;
    if (n < s.size() && s[n] == '.') {
        ++n;
        while (n < s.size() && isDigit(s[n])) ++n, ++digits;
    }
    if (digits == 0) return 0.0f;
    if (n < s.size() && (s[n] == 'e' || s[n] == 'E')) {
        size_t e = n + 1;
        if (e < s.size() && (s[e] == '+' || s[e] == '-')) ++e;
        if (e < s.size() && isDigit(s[e])) {
            while (e < s.size() && isDigit(s[e])) ++e;
            n = e;
        }
    }
    float value = 0.0f;
    // from_chars ignores the locale: "2.6" is 2.6 whatever the user's decimal separator.
    std::from_chars(s.data() + start, s.data() + n, value, std::chars_format::general);
    return negative ? -value : value;
}

int truncatedInt(float value) {
    if (std::isnan(value)) return 0;
    if (value >= 2147483648.0f) return INT_MAX;
    if (value <= -2147483648.0f) return INT_MIN;
    return int(value);
}

std::optional<QString> textValue(const QVariant& value) {
    if (!value.isValid() || value.isNull()) return std::nullopt;
    return value.toString();
}

QStringList components(const std::optional<QString>& text, const QString& separator) {
    if (!text) return {};
    return text->split(separator, Qt::KeepEmptyParts, Qt::CaseSensitive);
}

bool equalsIgnoringCase(const QString& a, const QString& b) { return a.compare(b, Qt::CaseInsensitive) == 0; }

std::string lastPathComponent(const std::string& path) {
    if (path.empty()) return "";
    size_t end = path.size();
    while (end > 1 && path[end - 1] == '/') --end;
    if (end == 1 && path[0] == '/') return "/";
    const size_t slash = path.rfind('/', end - 1);
    const size_t begin = slash == std::string::npos ? 0 : slash + 1;
    return path.substr(begin, end - begin);
}

std::string pathExtension(const std::string& path) {
    const std::string last = lastPathComponent(path);
    const size_t dot = last.rfind('.');
    // A leading dot names a hidden file, not an extension.
    if (dot == std::string::npos || dot == 0) return "";
    return last.substr(dot + 1);
}

}  // namespace vo::detail
