// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Kinds of files: what both restores bring back is the same as what was saved, attribute by
// attribute.
#include <gmock/gmock.h>
#include <sys/xattr.h>

#include "support/restored_host.h"
#include "support/tree_listing.h"

namespace halyard::test {
namespace {

// Everything that a service's folder may hold, made by a shell inside the root.
constexpr const char* kMakeTree = R"sh(
  mkdir -p "$0/sub/deep" && cd "$0" &&
  echo one >plain && chmod 0640 plain && chown 33:80 plain && touch -d @1000000000 plain &&
  echo setid >program && chown 500:33 program && chmod 6755 program &&
  ln plain sub/same && ln -s plain link && ln -s /nowhere dangling && ln -s .. sub/up &&
  chown -h 33:33 link && mkfifo pipe && chmod 0600 pipe &&
  mkdir sticky closed && chmod 1777 sticky && chmod 0 closed &&
  : >empty && chmod 0 empty && truncate -s 1000000 sparse &&
  echo odd >'a name with blanks' && echo odd >"$(printf 'line\nbreak')" &&
  chown 500:500 sub/deep && chmod 2750 sub/deep && touch -d @1100000000 sub/deep sub &&
  chown 33:80 . && chmod 0711 . && touch -d @1200000000 .)sh";

class RestoredTrees : public RestoredHost {
 protected:
  void makeTree(const std::string& folder) const {
    const auto result = root.runProgram("/bin/sh", {"-c", kMakeTree, folder});
    ASSERT_EQ(result.status, 0) << result.err;
    ASSERT_EQ(setxattr(root.path(folder + "/plain").c_str(), "user.note", "kept", 4, 0), 0);
    ASSERT_EQ(setxattr(root.path(folder + "/sub").c_str(), "trusted.note", "kept", 4, 0), 0);
  }

  void describe(const std::string& file, const std::string& plugin = "/opt/depot") const {
    root.writeDescriptor("30-depotHost.plist",
                         descriptorOf("depotHost", plugin).list("DataFiles", {file}));
  }

  CommandResult restoreService() const {
    return root.run(
        {"-cmd", "restoreService", "-path", "/snapshot", "-target", "/", "-service", "depotHost"});
  }
};

TEST_F(RestoredTrees, AWholeSystemRestoreKeepsEveryAttribute) {
  makeTree("/.Halyards/depotHost/srv/tree");
  const auto saved = listTree(root.path("/.Halyards/depotHost/srv/tree"));
  root.makeFolder("/srv");
  describe("/srv/tree");
  EXPECT_EQ(restore().status, 0);
  EXPECT_EQ(listTree(root.path("/srv/tree")), saved);
  EXPECT_FALSE(root.exists("/.Halyards"));
}

TEST_F(RestoredTrees, AServiceRestoreKeepsEveryAttributeAndLeavesTheSnapshotAlone) {
  makeTree("/snapshot/HD/.Halyards/depotHost/srv/tree");
  const auto saved = listTree(root.path("/snapshot/HD/.Halyards/depotHost/srv/tree"));
  root.makeFolder("/srv");
  describe("/srv/tree");
  EXPECT_EQ(restoreService().status, 0);
  EXPECT_EQ(listTree(root.path("/srv/tree")), saved);
  EXPECT_EQ(listTree(root.path("/snapshot/HD/.Halyards/depotHost/srv/tree")), saved);
}

TEST_F(RestoredTrees, TheLiveTreeIsMovedAsideUnchanged) {
  makeTree("/srv/tree");
  const auto live = listTree(root.path("/srv/tree"));
  root.writeFile("/snapshot/HD/.Halyards/depotHost/srv/tree/new", "saved");
  describe("/srv/tree");
  EXPECT_EQ(restoreService().status, 0);
  EXPECT_EQ(listTree(root.path("/srv/tree.previous")), live);
  EXPECT_EQ(root.list("/srv/tree"), std::vector<std::string>{"new"});
}

TEST_F(RestoredTrees, ABackupAndARestoreBringAServiceBackAsItWas) {
  makeTree("/srv/tree");
  const auto live = listTree(root.path("/srv/tree"));
  // The folder that holds the item is the plug-in's to make.
  root.writePlugin("/opt/depot", "if [ \"$2\" = backup ]; then mkdir \"$4/srv\"; fi");
  describe("/srv/tree");
  EXPECT_EQ(root.run({"-cmd", "backup", "-source", "/"}).status, 0);
  EXPECT_EQ(listTree(root.path("/.Halyards/depotHost/srv/tree")), live);
  root.remove("/srv/tree");
  root.setVolumeIdentifier("ANOTHER");
  EXPECT_EQ(restore().status, 0);
  EXPECT_EQ(listTree(root.path("/srv/tree")), live);
}

TEST_F(RestoredTrees, ASingleFileKeepsOwnerModeAndTime) {
  makeTree("/made");
  root.makeFolder("/snapshot/HD/.Halyards/depotHost/srv");
  root.runProgram("/bin/cp",
                  {"-a", "/made/program", "/snapshot/HD/.Halyards/depotHost/srv/program"});
  root.makeFolder("/srv");
  describe("/srv/program");
  EXPECT_EQ(restoreService().status, 0);
  EXPECT_EQ(listTree(root.path("/srv/program")), listTree(root.path("/made/program")));
  EXPECT_EQ(root.modeOf("/srv/program"), 06755U);
}

TEST_F(RestoredTrees, ASavedLinkComesBackAsALink) {
  root.writeFile("/target", "kept");
  root.makeLink("/snapshot/HD/.Halyards/depotHost/srv/data", "/target");
  root.writeFile("/srv/data", "live");
  describe("/srv/data");
  EXPECT_EQ(restoreService().status, 0);
  EXPECT_EQ(listTree(root.path("/srv/data")),
            listTree(root.path("/snapshot/HD/.Halyards/depotHost/srv/data")));
  EXPECT_EQ(root.readFile("/srv/data.previous"), "live");
}

TEST_F(RestoredTrees, ASavedDanglingLinkDoesNotExistSoTheLiveFileStays) {
  root.makeLink("/snapshot/HD/.Halyards/depotHost/srv/data", "/nowhere");
  root.writeFile("/srv/data", "live");
  describe("/srv/data");
  EXPECT_EQ(restoreService().status, 0);
  EXPECT_EQ(root.readFile("/srv/data"), "live");
  EXPECT_FALSE(root.exists("/srv/data.previous"));
}

TEST_F(RestoredTrees, ASavedPipeComesBackAsAPipeAndNobodyWaits) {
  root.makeFolder("/snapshot/HD/.Halyards/depotHost/srv");
  root.runProgram(
      "/bin/sh",
      {"-c", "cd /snapshot/HD/.Halyards/depotHost/srv && mkfifo pipe && chmod 0620 pipe"});
  root.makeFolder("/srv");
  describe("/srv/pipe");
  EXPECT_EQ(restoreService().status, 0);
  EXPECT_EQ(listTree(root.path("/srv/pipe")),
            listTree(root.path("/snapshot/HD/.Halyards/depotHost/srv/pipe")));
}

TEST_F(RestoredTrees, WhatAPluginDidToASavedFileIsWhatTheNextServiceGets) {
  root.writePlugin("/opt/first", "echo more >>/.Halyards/siteHost/srv/data; echo live >/srv/data");
  root.writeFile("/.Halyards/siteHost/srv/data", "saved\n");
  root.makeFolder("/srv");
  describe("/srv/none", "/opt/first");
  root.writeDescriptor("50-siteHost.plist",
                       descriptorOf("siteHost", "/opt/site").list("DataFiles", {"/srv/data"}));
  EXPECT_EQ(restore().status, 0);
  EXPECT_EQ(root.readFile("/srv/data"), "saved\nmore\n");
  EXPECT_EQ(root.readFile("/srv/data.previous"), "live\n");
}

TEST_F(RestoredTrees, ALinkThatAPluginPutsInPlaceOfALiveFileIsMovedNotFollowed) {
  root.writePlugin("/opt/first", "ln -s /kept /srv/data");
  root.writeFile("/kept", "kept");
  root.writeFile("/.Halyards/siteHost/srv/data", "saved");
  root.makeFolder("/srv");
  describe("/srv/none", "/opt/first");
  root.writeDescriptor("50-siteHost.plist",
                       descriptorOf("siteHost", "/opt/site").list("DataFiles", {"/srv/data"}));
  EXPECT_EQ(restore().status, 0);
  EXPECT_EQ(root.readFile("/kept"), "kept");
  EXPECT_EQ(root.readFile("/srv/data"), "saved");
}

TEST_F(RestoredTrees, AFolderThatWouldHoldItselfIsNotCopied) {
  root.writeFile("/snapshot/HD/.Halyards/depotHost/snapshot/x", "saved");
  describe("/snapshot");
  const auto result = restoreService();
  EXPECT_EQ(result.status, 0);
  // The live folder, the snapshot itself, is moved aside before the copy, so nothing is left to
  // copy.
  EXPECT_FALSE(root.exists("/snapshot"));
  EXPECT_EQ(root.readFile("/snapshot.previous/HD/.Halyards/depotHost/snapshot/x"), "saved");
}

TEST_F(RestoredTrees, TheUmaskDoesNotShowInWhatComesBack) {
  root.writeFile("/snapshot/HD/.Halyards/depotHost/srv/data", "saved", 0666);
  root.makeFolder("/srv");
  describe("/srv/data");
  RunOptions options;
  options.umask = 077;
  root.run(
      {"-cmd", "restoreService", "-path", "/snapshot", "-target", "/", "-service", "depotHost"}, {},
      options);
  EXPECT_EQ(root.modeOf("/srv/data"), 0666U);
}

}  // namespace
}  // namespace halyard::test
