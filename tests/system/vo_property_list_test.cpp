// SPDX-License-Identifier: MIT
// Property lists through libplist, and the desktop-entry text rules.
#include <gtest/gtest.h>

#include <QDateTime>
#include <QVariantList>
#include <QVariantMap>

#include "System/VoDesktopEntry_p.h"
#include "System/VoPropertyList_p.h"
#include "system_test_support.h"

namespace vo {
namespace {

TEST(VoPropertyList, EveryValueTypeRoundTripsThroughXml) {
    QVariantMap map;
    map.insert("string", QStringLiteral("ATY,Radeon X1600 — ünïcode"));
    map.insert("int", 42);
    map.insert("negative", -5);  // this libplist keeps integers unsigned; the reader restores the sign
    map.insert("real", 2.5);
    map.insert("yes", true);
    map.insert("no", false);
    map.insert("data", QByteArray("\x00\x01\xff", 3));
    map.insert("date", QDateTime(QDate(2016, 9, 20), QTime(8, 15, 30), Qt::UTC));
    map.insert("list", QVariantList({1, "two", QVariantMap({{"three", 3}})}));
    map.insert("empty", QVariantList());
    const std::string xml = detail::xmlPropertyList(QVariantList({map}));
    EXPECT_NE(xml.find("<plist version=\"1.0\">"), std::string::npos);
    const auto back = detail::propertyListFromBytes(xml);
    ASSERT_TRUE(back);
    const QVariantMap read = back->toList().value(0).toMap();
    EXPECT_EQ(read.value("string").toString(), map.value("string").toString());
    EXPECT_EQ(read.value("int").toLongLong(), 42);
    EXPECT_EQ(read.value("negative").toLongLong(), -5);
    EXPECT_EQ(read.value("real").toDouble(), 2.5);
    EXPECT_EQ(read.value("yes").typeId(), QMetaType::Bool);
    EXPECT_TRUE(read.value("yes").toBool());
    EXPECT_FALSE(read.value("no").toBool());
    EXPECT_EQ(read.value("data").toByteArray(), QByteArray("\x00\x01\xff", 3));
    EXPECT_EQ(read.value("date").toDateTime(), map.value("date").toDateTime());
    const QVariantList list = read.value("list").toList();
    ASSERT_EQ(list.size(), 3);
    EXPECT_EQ(list[1].toString(), "two");
    EXPECT_EQ(list[2].toMap().value("three").toLongLong(), 3);
    EXPECT_TRUE(read.value("empty").toList().isEmpty());
}

TEST(VoPropertyList, NotAPropertyList) {
    EXPECT_FALSE(detail::propertyListFromBytes(""));
    EXPECT_FALSE(detail::propertyListFromBytes("plain text"));
    EXPECT_FALSE(detail::propertyListFromFile("/nonexistent/file.xml"));
}

TEST(VoPropertyList, FixtureFileReads) {
    const auto root = detail::propertyListFromFile(std::string(VO_SYSTEM_FIXTURES) + "/profile_hardware_displays.xml");
    ASSERT_TRUE(root);
    const QVariantList sections = root->toList();
    ASSERT_EQ(sections.size(), 2);
    EXPECT_EQ(sections[1].toMap().value("_dataType").toString(), "SPDisplaysDataType");
    EXPECT_EQ(sections[0].toMap().value("_timeStamp").toDateTime(),
              QDateTime(QDate(2016, 9, 20), QTime(8, 15), Qt::UTC));
}

TEST(VoDesktopEntryText, StringEscapes) {
    EXPECT_EQ(detail::escapeDesktopValue(" a\\b\nc\td"), "\\sa\\\\b\\nc\\td");
    EXPECT_EQ(detail::unescapeDesktopValue("\\sa\\\\b\\nc\\td\\;"), " a\\b\nc\td\\;");
}

TEST(VoDesktopEntryText, ExecQuotingAndItsProgram) {
    EXPECT_EQ(detail::quoteExecArgument("/opt/a \"b\" $c `d` \\e 5%"), "\"/opt/a \\\"b\\\" \\$c \\`d\\` \\\\e 5%%\"");
    EXPECT_EQ(detail::execProgram(detail::quoteExecArgument("/opt/a \"b\" $c `d` \\e 5%")),
              "/opt/a \"b\" $c `d` \\e 5%");
    EXPECT_EQ(detail::execProgram("xterm -e top"), "xterm");
    EXPECT_EQ(detail::execProgram("  \"/a b/c\" %U"), "/a b/c");
    EXPECT_EQ(detail::execProgram(""), "");
}

TEST(VoDesktopEntryText, ReadsOnlyTheMainGroup) {
    test::TempDir dir;
    test::writeFile(
        dir.path() / "x.desktop",
        "[Other]\nName=Wrong\n[Desktop Entry]\nName = Right\nName[fr]=Droit\nExec=a\\sb\n[Desktop Action x]\nExec=c\n");
    const auto entry = detail::readDesktopEntry(dir.path() / "x.desktop");
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->at("Name"), "Right");
    EXPECT_EQ(entry->at("Exec"), "a b");
    EXPECT_EQ(entry->count("Name[fr]"), 0u);
    test::writeFile(dir.path() / "y.desktop", "Name=No group\n");
    EXPECT_FALSE(detail::readDesktopEntry(dir.path() / "y.desktop"));
}

}  // namespace
}  // namespace vo
