// SPDX-License-Identifier: MIT
// Numbers, words and path components read the way the system utilities expect.
#include "System/VoValueText_p.h"

#include <gtest/gtest.h>

#include <climits>
#include <clocale>

namespace vo {
namespace {

using namespace detail;

TEST(VoValueText, IntegerValueOfTexts) {
    EXPECT_EQ(intValue(std::string_view("15")), 15);
    EXPECT_EQ(intValue(std::string_view("  -7x")), -7);
    EXPECT_EQ(intValue(std::string_view("+3")), 3);
    EXPECT_EQ(intValue(std::string_view("2.6 GHz")), 2);
    EXPECT_EQ(intValue(std::string_view("0-18-amd64")), 0);
    EXPECT_EQ(intValue(std::string_view("GHz")), 0);
    EXPECT_EQ(intValue(std::string_view("")), 0);
    EXPECT_EQ(intValue(std::string_view("99999999999")), INT_MAX);
    EXPECT_EQ(intValue(std::string_view("-99999999999")), INT_MIN);
}

TEST(VoValueText, IntegerValueOfPropertyListValues) {
    EXPECT_EQ(intValue(QVariant()), 0);
    EXPECT_EQ(intValue(QVariant(qint64(8))), 8);
    EXPECT_EQ(intValue(QVariant(2.9)), 2);
    EXPECT_EQ(intValue(QVariant(-2.9)), -2);
    EXPECT_EQ(intValue(QVariant(true)), 1);
    EXPECT_EQ(intValue(QVariant(QStringLiteral("4 cores"))), 4);
    EXPECT_EQ(intValue(QVariant(QVariantList({1}))), 0);
}

TEST(VoValueText, FloatValueIgnoresTheLocale) {
    const std::string previous = std::setlocale(LC_NUMERIC, nullptr);
    std::setlocale(LC_NUMERIC, "de_DE.UTF-8");  // where available, a comma locale
    EXPECT_FLOAT_EQ(floatValue(QStringLiteral("2.6")), 2.6f);
    std::setlocale(LC_NUMERIC, previous.c_str());
    EXPECT_FLOAT_EQ(floatValue(QStringLiteral(" 1.5e3x")), 1500.0f);
    EXPECT_FLOAT_EQ(floatValue(QStringLiteral("-.5")), -0.5f);
    EXPECT_EQ(floatValue(QStringLiteral("inf")), 0.0f);
    EXPECT_EQ(floatValue(QStringLiteral("0x10")), 0.0f);
    EXPECT_EQ(floatValue(QStringLiteral("")), 0.0f);
    EXPECT_EQ(floatValue(QStringLiteral("1e")), 1.0f);
}

TEST(VoValueText, TruncationTowardZero) {
    EXPECT_EQ(truncatedInt(2599.99f), 2599);
    EXPECT_EQ(truncatedInt(-1.5f), -1);
    EXPECT_EQ(truncatedInt(1e20f), INT_MAX);
    EXPECT_EQ(truncatedInt(-1e20f), INT_MIN);
    EXPECT_EQ(truncatedInt(NAN), 0);
}

TEST(VoValueText, ComponentsKeepEmptyPieces) {
    EXPECT_EQ(components(QStringLiteral("2.6 GHz"), " "), QStringList({"2.6", "GHz"}));
    EXPECT_EQ(components(QStringLiteral("2.6  GHz"), " "), QStringList({"2.6", "", "GHz"}));
    EXPECT_EQ(components(QStringLiteral(""), " "), QStringList({""}));
    EXPECT_EQ(components(std::nullopt, " "), QStringList());
    EXPECT_EQ(components(QStringLiteral("ATY,RadeonX1600"), "ATY,"), QStringList({"", "RadeonX1600"}));
}

TEST(VoValueText, CaseInsensitiveEquality) {
    EXPECT_TRUE(equalsIgnoringCase("ghz", "GHz"));
    EXPECT_FALSE(equalsIgnoringCase("GHz.", "GHz"));
}

TEST(VoValueText, PathComponents) {
    EXPECT_EQ(lastPathComponent("/Applications/B.app"), "B.app");
    EXPECT_EQ(lastPathComponent("/Applications/B.app/"), "B.app");
    EXPECT_EQ(lastPathComponent("B.app"), "B.app");
    EXPECT_EQ(lastPathComponent("/"), "/");
    EXPECT_EQ(lastPathComponent("//"), "/");
    EXPECT_EQ(lastPathComponent(""), "");
    EXPECT_EQ(pathExtension("B.app"), "app");
    EXPECT_EQ(pathExtension("/x.y/B"), "");
    EXPECT_EQ(pathExtension("archive.tar.gz"), "gz");
    EXPECT_EQ(pathExtension(".app"), "");
}

}  // namespace
}  // namespace vo
