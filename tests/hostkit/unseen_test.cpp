// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What cannot be looked at is not taken for absent. A link that leads to itself stands for it here:
// to follow it fails, with an error that is none of a missing file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "common/configuration.h"
#include "common/exclusions.h"
#include "common/incomplete_mark.h"
#include "common/property_file.h"
#include "helmsman/program/pid_file_state.h"
#include "helmsman/restore/restore_plan.h"
#include "host/files/files.h"
#include "product/paths.h"
#include "restore_test.h"
#include "support/scratch.h"

namespace halyard::hostkit {
namespace {

using test::Scratch;
using testing::HasSubstr;
using testing::IsEmpty;

struct UnseenFile {
  Scratch scratch;
  std::string path = scratch / "file";

  UnseenFile() { (void)::symlink("file", path.c_str()); }
  bool isAsBefore() const { return host::isSymbolicLink(path); }
};

TEST(UnseenFile, OfLinesIsNeitherReadAsEmptyNorReplaced) {
  const UnseenFile file;
  std::string problem;
  EXPECT_FALSE(readConfiguration(file.path, {"key"}, problem));
  EXPECT_EQ(problem, file.path + " cannot be read");
  EXPECT_FALSE(addConfigurationLine(file.path, "key", "value"));
  EXPECT_FALSE(replaceConfigurationLines(file.path, {"key"}, {{"key", "value", 0}}));
  EXPECT_FALSE(replaceConfigurationLines(file.path, {"key"}, {}));
  EXPECT_FALSE(removeConfigurationLine(file.path, "key", "value"));
  EXPECT_TRUE(file.isAsBefore());
}

TEST(UnseenFile, OfPreferencesIsAProblem) {
  const UnseenFile file;
  std::string problem;
  EXPECT_FALSE(readPropertyFile(file.path, problem));
  EXPECT_EQ(problem, file.path + " is no readable property list with a dictionary");
}

TEST(UnseenFile, OfExclusionsIsNotTheDefault) {
  const UnseenFile file;
  EXPECT_FALSE(Exclusions::read(file.path));
}

TEST(UnseenItem, IsTakenForLive) {
  const UnseenFile file;
  InstalledDescriptor descriptor;
  descriptor.readable = true;
  descriptor.content.set("ServiceName", "depotHost");
  descriptor.content.set("DataFiles", PropertyArray{PropertyValue(file.path)});
  const auto plan = planRestore({descriptor}, Snapshot());
  ASSERT_EQ(plan.size(), 1U);
  EXPECT_TRUE(plan.front().live);
}

class Unseen : public test::RestoreTest {
 protected:
  static constexpr char kServices[] = "/private/etc/halyard/com.vantor.Halyard.plist";
  static constexpr char kEngine[] = "/Library/Preferences/com.vantor.Snapwheel.plist";

  void hide(const std::string& path) const {
    root.remove(path);
    root.makeLink(path, path);
  }
  bool isHidden(const std::string& path) const { return host::isSymbolicLink(root.path(path)); }
};

TEST_F(Unseen, PreferencesAreNotWrittenAnew) {
  for (const std::string path : {kServices, kEngine}) {
    hide(path);
    const auto result = helmsman({"settings", "backup"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "helmsman: " + path + " cannot be looked at\n");
    EXPECT_TRUE(isHidden(path));
    root.remove(path);
    EXPECT_EQ(helmsman({"settings", "backup"}).status, 0);
  }
}

TEST_F(Unseen, TheConfigurationOfTheHostIsNotWrittenAnew) {
  const std::string path = "/Library/Preferences/HostConfig/preferences.plist";
  root.writeFile(path, "");
  hide(path);
  EXPECT_EQ(helmsman({"setup"}).status, 1);
  EXPECT_TRUE(isHidden(path));
}

TEST_F(Unseen, APidFileIsNotTakenForNone) {
  hide(paths::kPidFile);
  EXPECT_THAT(helmsman({"restore", "depotHost", "--yes"}).err, HasSubstr(paths::kPidFile));
  EXPECT_EQ(root.readFile("/srv/depot"), "new data");
}

TEST_F(Unseen, ARestoreKeepsWhatOneBeforeItSetAside) {
  ASSERT_EQ(helmsman({"restore", "depotHost", "--yes"}).status, 0);
  root.writeFile("/var/lib/halyard/undo/depotHost.json", "{");
  const auto result = helmsman({"restore", "depotHost", "--yes"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(
      result.err,
      "helmsman: /etc/depot.conf.previous may be what an earlier restore set aside, and would be "
      "lost: the record of that restore cannot be read; move it elsewhere, or give --force\n");
  EXPECT_EQ(root.readFile("/srv/depot.previous"), "new data");
  EXPECT_EQ(helmsman({"restore", "depotHost", "--yes", "--force"}).status, 0);
}

TEST_F(Unseen, ARecordOfARestoreIsTold) {
  ASSERT_EQ(helmsman({"restore", "depotHost", "--yes"}).status, 0);
  root.writeFile("/var/lib/halyard/undo/other.json", "{");
  const std::string told =
      "helmsman: /var/lib/halyard/undo/other.json cannot be read; what it names stays\n";
  auto result = helmsman({"tidy", "--dry-run"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr(told));
  result = helmsman({"tidy", "--yes"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr(told));
  EXPECT_FALSE(root.exists("/srv/depot.previous"));
  EXPECT_EQ(helmsman({"tidy", "--yes"}).status, 1);
}

}  // namespace
}  // namespace halyard::hostkit
