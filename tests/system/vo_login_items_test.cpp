// SPDX-License-Identifier: MIT
// VoLoginItems over a fake store: the parsing of the listing, the name rule of removal and the log lines.
#include "System/VoLoginItems.h"

#include <gtest/gtest.h>

#include "System/VoLoginItemStore.h"
#include "system_test_support.h"

namespace vo {
namespace {

class FakeStore final : public VoLoginItemStore {
public:
    std::string listing;
    std::vector<std::string> deleted, made;
    std::string listItemPaths() override { return listing; }
    void deleteItemNamed(const std::string& name) override { deleted.push_back(name); }
    void makeItemAtEnd(const std::string& path) override { made.push_back(path); }
};

class VoLoginItemsTest : public ::testing::Test {
protected:
    void SetUp() override { VoLoginItems::setStore(store_); }
    void TearDown() override { VoLoginItems::setStore(nullptr); }
    std::shared_ptr<FakeStore> store_ = std::make_shared<FakeStore>();
};

TEST_F(VoLoginItemsTest, FindsTheFullPathByItsLastComponent) {
    store_->listing = "/Applications/A.app, /Applications/B.app\n";
    EXPECT_EQ(VoLoginItems::isLoginItem("B.app"), "/Applications/B.app");
    EXPECT_EQ(VoLoginItems::isLoginItem("A.app"), "/Applications/A.app");
}

TEST_F(VoLoginItemsTest, TheExtensionIsPartOfTheComparison) {
    store_->listing = "/Applications/A.app, /Applications/B.app\n";
    EXPECT_EQ(VoLoginItems::isLoginItem("B"), std::nullopt);
    EXPECT_EQ(VoLoginItems::isLoginItem("b.app"), std::nullopt);  // and the case
}

TEST_F(VoLoginItemsTest, EmptyOutputFindsNothing) {
    store_->listing = "";
    EXPECT_EQ(VoLoginItems::isLoginItem("B.app"), std::nullopt);
    store_->listing.assign(1, '\n');  // a line end alone
    EXPECT_EQ(VoLoginItems::isLoginItem("B.app"), std::nullopt);
}

TEST_F(VoLoginItemsTest, PiecesAreTrimmedAndTheFirstMatchWins) {
    store_->listing = "  /Users/me/B.app , \t/Applications/B.app, /x/C.app/ \n";
    EXPECT_EQ(VoLoginItems::isLoginItem("B.app"), "/Users/me/B.app");
    EXPECT_EQ(VoLoginItems::isLoginItem("C.app"), "/x/C.app/");  // trailing slash ignored by the comparison
}

TEST_F(VoLoginItemsTest, APathContainingTheSeparatorIsSplitWrongly) {
    store_->listing = "/Applications/Tom, Jerry.app\n";
    EXPECT_EQ(VoLoginItems::isLoginItem("Tom, Jerry.app"), std::nullopt);
    EXPECT_EQ(VoLoginItems::isLoginItem("Jerry.app"), "Jerry.app");
}

TEST_F(VoLoginItemsTest, RemovalCutsTheAppExtension) {
    test::LogCapture log;
    VoLoginItems::removeLoginItem("B.app");
    EXPECT_EQ(store_->deleted, std::vector<std::string>({"B"}));
    EXPECT_EQ(log.messages(), std::vector<std::string>({"remove login item B"}));
}

TEST_F(VoLoginItemsTest, RemovalKeepsOtherNamesAsTheyAre) {
    test::LogCapture log;
    VoLoginItems::removeLoginItem("B");
    VoLoginItems::removeLoginItem("Tool.APP");  // the extension test is exact
    VoLoginItems::removeLoginItem("archive.app.zip");
    EXPECT_EQ(store_->deleted, std::vector<std::string>({"B", "Tool.APP", "archive.app.zip"}));
    EXPECT_EQ(log.messages(), std::vector<std::string>({"remove login item B", "remove login item Tool.APP",
                                                        "remove login item archive.app.zip"}));
}

TEST_F(VoLoginItemsTest, AddingLogsAndHandsThePathOn) {
    test::LogCapture log;
    VoLoginItems::addLoginItem("/Applications/B.app");
    EXPECT_EQ(store_->made, std::vector<std::string>({"/Applications/B.app"}));
    EXPECT_EQ(log.messages(), std::vector<std::string>({"adding login item /Applications/B.app"}));
}

}  // namespace
}  // namespace vo
