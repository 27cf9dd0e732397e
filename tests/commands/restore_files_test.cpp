// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// How both restores put configuration and data files back, and what stays under ".previous".
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>

#include "support/restored_host.h"
#include "support/run_output.h"

namespace halyard::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class RestoreFiles : public RestoredHost {
 protected:
  void restoreData(const std::vector<std::string>& files) const { restoreLists({}, files); }

  void restoreLists(const std::vector<std::string>& configuration,
                    const std::vector<std::string>& data) const {
    root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/opt/depot")
                                                   .list("ConfigurationFiles", configuration)
                                                   .list("DataFiles", data));
    EXPECT_EQ(restore().status, 0);
  }

  // No staging or other leftover stands beside what was restored.
  void expectOnly(const std::string& folder, const std::vector<std::string>& names) const {
    EXPECT_EQ(root.list(folder), names);
  }
};

TEST_F(RestoreFiles, ADataFileComesBackAndTheLiveOneStaysAside) {
  root.writeFile("/srv/data", "live");
  root.writeFile("/.Halyards/depotHost/srv/data", "saved");
  restoreData({"/srv/data"});
  EXPECT_EQ(root.readFile("/srv/data"), "saved");
  EXPECT_EQ(root.readFile("/srv/data.previous"), "live");
  expectOnly("/srv", {"data", "data.previous"});
}

TEST_F(RestoreFiles, AConfigurationFileIsOnlySetAside) {
  root.writeFile("/etc/depot.conf", "live");
  root.writeFile("/.Halyards/depotHost/etc/depot.conf", "saved");
  restoreLists({"/etc/depot.conf"}, {});
  EXPECT_FALSE(root.exists("/etc/depot.conf"));
  EXPECT_EQ(root.readFile("/etc/depot.conf.previous"), "live");
}

TEST_F(RestoreFiles, AConfigurationFileThatIsNotLiveStaysAbsent) {
  root.writeFile("/.Halyards/depotHost/etc/depot.conf", "saved");
  restoreLists({"/etc/depot.conf"}, {});
  EXPECT_FALSE(root.exists("/etc/depot.conf"));
}

TEST_F(RestoreFiles, WhatTheSnapshotDoesNotHoldIsLeftAlone) {
  root.writeFile("/srv/data", "live");
  root.writeFile("/etc/depot.conf", "live");
  restoreLists({"/etc/depot.conf"}, {"/srv/data"});
  EXPECT_EQ(root.readFile("/srv/data"), "live");
  EXPECT_EQ(root.readFile("/etc/depot.conf"), "live");
  expectOnly("/srv", {"data"});
}

TEST_F(RestoreFiles, AnOlderAsideItemGivesWay) {
  root.writeFile("/srv/data", "live");
  root.writeFile("/srv/data.previous", "older");
  root.writeFile("/.Halyards/depotHost/srv/data", "saved");
  restoreData({"/srv/data"});
  EXPECT_EQ(root.readFile("/srv/data"), "saved");
  EXPECT_EQ(root.readFile("/srv/data.previous"), "live");
}

TEST_F(RestoreFiles, AnAsideItemThatIsAFolderGivesWayWithItsContents) {
  root.writeFile("/srv/data", "live");
  root.writeFile("/srv/data.previous/deep/er", "older");
  root.writeFile("/.Halyards/depotHost/srv/data", "saved");
  restoreData({"/srv/data"});
  EXPECT_EQ(root.readFile("/srv/data.previous"), "live");
}

TEST_F(RestoreFiles, AnAsideItemStaysWhereNothingIsLive) {
  root.writeFile("/srv/data.previous", "older");
  root.writeFile("/.Halyards/depotHost/srv/data", "saved");
  restoreData({"/srv/data"});
  EXPECT_EQ(root.readFile("/srv/data"), "saved");
  EXPECT_EQ(root.readFile("/srv/data.previous"), "older");
}

TEST_F(RestoreFiles, AnAsideItemThatIsALinkLosesOnlyTheLink) {
  root.writeFile("/kept/x", "kept");
  root.writeFile("/srv/data", "live");
  root.makeLink("/srv/data.previous", "/kept");
  root.writeFile("/.Halyards/depotHost/srv/data", "saved");
  restoreData({"/srv/data"});
  EXPECT_EQ(root.readFile("/srv/data.previous"), "live");
  EXPECT_EQ(root.readFile("/kept/x"), "kept");
}

TEST_F(RestoreFiles, ALiveLinkIsMovedNotWhatItLeadsTo) {
  root.writeFile("/kept", "kept");
  root.makeFolder("/srv");
  root.makeLink("/srv/data", "/kept");
  root.writeFile("/.Halyards/depotHost/srv/data", "saved");
  restoreData({"/srv/data"});
  EXPECT_EQ(root.readFile("/kept"), "kept");
  EXPECT_EQ(root.readFile("/srv/data"), "saved");
  struct stat status {};
  ASSERT_EQ(lstat(root.path("/srv/data.previous").c_str(), &status), 0);
  EXPECT_TRUE(S_ISLNK(status.st_mode));
  ASSERT_EQ(lstat(root.path("/srv/data").c_str(), &status), 0);
  EXPECT_TRUE(S_ISREG(status.st_mode));
}

TEST_F(RestoreFiles, ADanglingLiveLinkDoesNotExistSoTheCopyFailsAndItStays) {
  root.makeFolder("/srv");
  root.makeLink("/srv/data", "/nowhere");
  root.writeFile("/.Halyards/depotHost/srv/data", "saved");
  restoreData({"/srv/data"});
  EXPECT_FALSE(root.exists("/nowhere"));
  EXPECT_FALSE(root.exists("/srv/data.previous"));
  expectOnly("/srv", {"data"});
  EXPECT_EQ(root.readFile("/srv/data"), "<missing>");
}

TEST_F(RestoreFiles, AFolderComesBackWhole) {
  root.writeFile("/srv/share/old", "live");
  root.writeFile("/.Halyards/depotHost/srv/share/a/b", "saved");
  root.makeFolder("/.Halyards/depotHost/srv/share/empty", 0700);
  restoreData({"/srv/share"});
  EXPECT_EQ(root.readFile("/srv/share/a/b"), "saved");
  EXPECT_EQ(root.modeOf("/srv/share/empty"), 0700U);
  expectOnly("/srv/share", {"a", "empty"});
  EXPECT_EQ(root.readFile("/srv/share.previous/old"), "live");
}

TEST_F(RestoreFiles, AFileReplacesAFolderAndAFolderAFile) {
  root.writeFile("/srv/one/x", "live");
  root.writeFile("/srv/two", "live");
  root.writeFile("/.Halyards/depotHost/srv/one", "saved");
  root.writeFile("/.Halyards/depotHost/srv/two/y", "saved");
  restoreData({"/srv/one", "/srv/two"});
  EXPECT_EQ(root.readFile("/srv/one"), "saved");
  EXPECT_EQ(root.readFile("/srv/one.previous/x"), "live");
  EXPECT_EQ(root.readFile("/srv/two/y"), "saved");
  EXPECT_EQ(root.readFile("/srv/two.previous"), "live");
}

TEST_F(RestoreFiles, ALivePathWithoutItsFolderStaysMissing) {
  root.writeFile("/.Halyards/depotHost/srv/deep/data", "saved");
  restoreData({"/srv/deep/data"});
  EXPECT_FALSE(root.exists("/srv"));
}

TEST_F(RestoreFiles, ALivePathWhoseFolderIsALinkIsRestoredBehindIt) {
  root.writeFile("/real/data", "live");
  root.makeLink("/srv", "real");
  root.writeFile("/.Halyards/depotHost/srv/data", "saved");
  restoreData({"/srv/data"});
  EXPECT_EQ(root.readFile("/real/data"), "saved");
  EXPECT_EQ(root.readFile("/real/data.previous"), "live");
  expectOnly("/real", {"data", "data.previous"});
}

TEST_F(RestoreFiles, ALivePathWhoseFolderIsAFileIsLeftAlone) {
  root.writeFile("/srv", "live");
  root.writeFile("/.Halyards/depotHost/srv/data", "saved");
  restoreData({"/srv/data"});
  EXPECT_EQ(root.readFile("/srv"), "live");
}

TEST_F(RestoreFiles, OneEntryThatFailsDoesNotStopTheNext) {
  root.writeFile("/.Halyards/depotHost/gone/data", "saved");
  root.writeFile("/.Halyards/depotHost/srv/data", "saved");
  root.makeFolder("/srv");
  restoreData({"/gone/data", "/srv/data"});
  EXPECT_EQ(root.readFile("/srv/data"), "saved");
}

TEST_F(RestoreFiles, AFileThatIsListedTwiceEndsWithTheSavedOneAsideToo) {
  root.writeFile("/srv/data", "live");
  root.writeFile("/.Halyards/depotHost/srv/data", "saved");
  restoreData({"/srv/data", "/srv/data"});
  EXPECT_EQ(root.readFile("/srv/data"), "saved");
  EXPECT_EQ(root.readFile("/srv/data.previous"), "saved");
}

TEST_F(RestoreFiles, AConfigurationFileThatIsDataTooComesBackByTheDataPass) {
  root.writeFile("/srv/data", "live");
  root.writeFile("/.Halyards/depotHost/srv/data", "saved");
  restoreLists({"/srv/data"}, {"/srv/data"});
  EXPECT_EQ(root.readFile("/srv/data"), "saved");
  EXPECT_EQ(root.readFile("/srv/data.previous"), "live");
}

TEST_F(RestoreFiles, EntriesThatAreNoTextAreSkipped) {
  root.writeFile("/srv/data", "live");
  root.writeFile("/.Halyards/depotHost/srv/data", "saved");
  root.writeDescriptor(
      "30-depotHost.plist",
      descriptorOf("depotHost", "/opt/depot")
          .raw("DataFiles", "<array><integer>1</integer><string>/srv/data</string></array>")
          .raw("ConfigurationFiles", "<string>/srv/data</string>"));
  EXPECT_EQ(restore().status, 0);
  EXPECT_EQ(root.readFile("/srv/data"), "saved");
  EXPECT_EQ(root.readFile("/srv/data.previous"), "live");
}

TEST_F(RestoreFiles, TheRecordsStandBeforeAndAfterEachPass) {
  root.writePlugin("/opt/depot", "cp /private/var/log/halyard/server_progress.log /at-call");
  root.writeFile("/.Halyards/depotHost/srv/data", "saved");
  restoreData({"/srv/data"});
  EXPECT_THAT(
      root.progressMessages(),
      ElementsAre("## PROGRESS :: Halyard :: depotHost :: Restoring configuration files...",
                  "## PROGRESS :: Halyard :: depotHost :: Configuration file restore done.",
                  "## PROGRESS :: Halyard :: depotHost :: Restoring data files...",
                  "## PROGRESS :: Halyard :: depotHost :: Data file restore done.",
                  "## PROGRESS :: Halyard :: depotHost :: Calling service restore binary...",
                  "## PROGRESS :: Halyard :: depotHost :: Service restore binary done."));
  EXPECT_THAT(root.readFile("/at-call"), HasSubstr("Calling service restore binary...\n"));
  EXPECT_THAT(root.readFile("/at-call"), testing::Not(HasSubstr("Service restore binary done")));
}

TEST_F(RestoreFiles, ThePluginFindsTheDataRestoredAndItsOwnFolderStillThere) {
  root.writePlugin("/opt/depot", "cat /srv/data \"$4/backup\" >/seen; rm /srv/data");
  root.writeFile("/.Halyards/depotHost/srv/data", "data\n");
  root.writeFile("/.Halyards/depotHost/backup", "own\n");
  root.makeFolder("/srv");
  restoreData({"/srv/data"});
  EXPECT_EQ(root.readFile("/seen"), "data\nown\n");
  EXPECT_FALSE(root.exists("/srv/data"));
}

TEST_F(RestoreFiles, AServiceWithoutANameRestoresFromTheFolderOfNull) {
  root.writeFile("/.Halyards/(null)/srv/data", "saved");
  root.makeFolder("/srv");
  root.writeDescriptor("30-x.plist", DescriptorText().list("DataFiles", {"/srv/data"}));
  EXPECT_EQ(restore().status, 0);
  EXPECT_EQ(root.readFile("/srv/data"), "saved");
}

TEST_F(RestoreFiles, AServiceNameThatLeadsElsewhereIsJoinedAsItStands) {
  root.writeFile("/elsewhere/srv/data", "saved");
  root.makeFolder("/srv");
  root.writeDescriptor(
      "30-x.plist",
      DescriptorText().text("ServiceName", "../elsewhere").list("DataFiles", {"/srv/data"}));
  EXPECT_EQ(restore().status, 0);
  EXPECT_EQ(root.readFile("/srv/data"), "saved");
}

TEST_F(RestoreFiles, AnAsideItemThatHoldsTheCopyTakesItAlong) {
  root.writeFile("/srv/data", "live");
  root.writeFile("/srv/data.previous/srv/data", "saved");
  root.writeDescriptor("30-x.plist", DescriptorText()
                                         .text("ServiceName", "../srv/data.previous")
                                         .list("DataFiles", {"/srv/data"}));
  EXPECT_EQ(restore().status, 0);
  EXPECT_FALSE(root.exists("/srv/data"));
  EXPECT_EQ(root.readFile("/srv/data.previous"), "live");
}

TEST_F(RestoreFiles, ASavedLinkIntoTheLiveFolderComesBackThoughItNowLeadsNowhere) {
  root.writeFile("/srv/data/inner", "live");
  root.makeLink("/.Halyards/depotHost/srv/data", "/srv/data/inner");
  restoreData({"/srv/data"});
  EXPECT_TRUE(root.exists("/srv/data"));
  EXPECT_FALSE(root.isFolder("/srv/data"));
  EXPECT_EQ(root.readFile("/srv/data.previous/inner"), "live");
}

TEST_F(RestoreFiles, AnEntryThatIsNotAbsoluteIsNeverCopied) {
  root.writeFile("/.Halyards/depotHost/srv/data", "saved");
  root.makeFolder("/srv");
  restoreData({"srv/data"});
  EXPECT_FALSE(root.exists("/srv/data"));
}

TEST_F(RestoreFiles, AnEmptyEntryTouchesNothing) {
  root.writeFile("/.Halyards/depotHost/x", "saved");
  const auto before = root.list("/");
  restoreData({""});
  auto after = root.list("/");
  after.insert(std::lower_bound(after.begin(), after.end(), ".Halyards"), ".Halyards");
  EXPECT_EQ(after, before);
}

TEST_F(RestoreFiles, AnEmptyServiceNameRestoresFromTheMetadataFolderItself) {
  root.writeFile("/.Halyards/srv/data", "saved");
  root.makeFolder("/srv");
  root.writeDescriptor("30-x.plist",
                       DescriptorText().text("ServiceName", "").list("DataFiles", {"/srv/data"}));
  EXPECT_EQ(restore().status, 0);
  EXPECT_EQ(root.readFile("/srv/data"), "saved");
}

}  // namespace
}  // namespace halyard::test
