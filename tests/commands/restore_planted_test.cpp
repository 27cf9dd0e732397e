// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Items that somebody planted at the paths that a restore uses, and folders that cannot be written.
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "support/forked.h"
#include "support/restored_host.h"

namespace halyard::test {
namespace {

using testing::HasSubstr;

class RestorePlanted : public RestoredHost {
 protected:
  static constexpr const char* kReportCopy = "/tmp/ServerSourceDiskInfo.plist";

  // The booted volume is the recorded one, so the attempt is bogus; or it is another, so it is not.
  void expectIdentifierIsSeen() const {
    root.setVolumeIdentifier("ANOTHER");
    EXPECT_EQ(restore().status, 0);
    EXPECT_FALSE(root.exists("/.Halyards"));
    root.makeFolder("/.Halyards");
    recordVolume("ANOTHER");
    EXPECT_EQ(restore().status, 1);
  }
};

TEST_F(RestorePlanted, ALinkAtTheReportCopyIsReplacedAndNotFollowed) {
  root.writeFile("/etc/victim", "kept");
  root.makeLink(kReportCopy, "/etc/victim");
  expectIdentifierIsSeen();
  EXPECT_EQ(root.readFile("/etc/victim"), "kept");
  EXPECT_THAT(root.readFile(kReportCopy), HasSubstr("<string>ANOTHER</string>"));
}

TEST_F(RestorePlanted, APipeAtTheReportCopyHoldsNobodyUp) {
  ASSERT_EQ(mkfifo(root.path(kReportCopy).c_str(), 0666), 0);
  expectIdentifierIsSeen();
  EXPECT_THAT(root.readFile(kReportCopy), HasSubstr("<string>ANOTHER</string>"));
}

TEST_F(RestorePlanted, AFolderAtTheReportCopyStaysAndTheIdentifierIsStillKnown) {
  root.writeFile(std::string(kReportCopy) + "/inner", "kept");
  expectIdentifierIsSeen();
  EXPECT_EQ(root.readFile(std::string(kReportCopy) + "/inner"), "kept");
}

TEST_F(RestorePlanted, WithoutTmpTheIdentifierIsStillKnown) {
  root.remove("/tmp");
  expectIdentifierIsSeen();
}

TEST_F(RestorePlanted, AReportThatSomebodyElseMayWriteToIsMadeAnew) {
  root.writeFile(kReportCopy, "planted", 0666);
  expectIdentifierIsSeen();
  EXPECT_EQ(root.modeOf(kReportCopy) & 022U, 0U);
  EXPECT_EQ(root.list("/tmp"), std::vector<std::string>{"ServerSourceDiskInfo.plist"});
}

TEST_F(RestorePlanted, AFileInPlaceOfTheMetadataFolderIsABogusAttemptAndStays) {
  root.remove("/.Halyards");
  root.writeFile("/.Halyards", "kept");
  EXPECT_EQ(restore().status, 1);
  EXPECT_EQ(root.readFile("/.Halyards"), "kept");
}

TEST_F(RestorePlanted, AFileAtTheOtherNameOfTheMetadataFolderGoes) {
  root.writeFile("/Halyards", "");
  EXPECT_EQ(restore().status, 0);
  EXPECT_FALSE(root.exists("/Halyards"));
  EXPECT_TRUE(root.exists(kMarker));
}

TEST_F(RestorePlanted, ADanglingLinkAtTheOtherNameStaysAndSoDoesTheMetadataFolder) {
  root.makeLink("/Halyards", "/nowhere");
  EXPECT_EQ(restore().status, 0);
  EXPECT_TRUE(root.exists("/Halyards"));
  EXPECT_TRUE(root.exists(kMarker));
}

TEST_F(RestorePlanted, AMarkerThatIsAFolderCountsAsAnAttempt) {
  root.makeFolder(kMarker);
  EXPECT_EQ(restore().status, 0);
  EXPECT_TRUE(root.isFolder(kMarker));
}

TEST_F(RestorePlanted, AProgressLogThatIsAFolderHoldsNobodyUp) {
  root.makeFolder(kProgressLog);
  root.writePlugin("/opt/depot");
  root.writeDescriptor("30-depotHost.plist", descriptorOf("depotHost", "/opt/depot"));
  EXPECT_EQ(restore().status, 0);
  EXPECT_EQ(root.calls().size(), 1U);
}

TEST_F(RestorePlanted, AProgressLogThatIsAPipeHoldsNobodyUp) {
  ASSERT_EQ(mkfifo(root.path(kProgressLog).c_str(), 0666), 0);
  EXPECT_EQ(restore().status, 0);
}

TEST_F(RestorePlanted, AReadOnlyFolderKeepsItsFileAndTheOthersAreStillRestored) {
  if (!canMountPrivately()) GTEST_SKIP() << "no mounts here";
  root.writeFile("/fixed/data", "live");
  root.writeFile("/srv/data", "live");
  root.writeFile("/.Halyards/depotHost/fixed/data", "saved");
  root.writeFile("/.Halyards/depotHost/srv/data", "saved");
  root.writeDescriptor(
      "30-depotHost.plist",
      descriptorOf("depotHost", "/opt/depot").list("DataFiles", {"/fixed/data", "/srv/data"}));
  const std::string fixed = root.path("/fixed");
  const int status = exitStatusOf([&] {
    if (!enterPrivateMounts()) return 1;
    if (mount(fixed.c_str(), fixed.c_str(), nullptr, MS_BIND, nullptr) != 0) return 2;
    if (mount(nullptr, fixed.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0)
      return 3;
    return restore().status == 0 ? 0 : 4;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(root.readFile("/fixed/data"), "live");
  EXPECT_EQ(root.list("/fixed"), std::vector<std::string>{"data"});
  EXPECT_EQ(root.readFile("/srv/data"), "saved");
  EXPECT_EQ(root.readFile("/srv/data.previous"), "live");
}

}  // namespace
}  // namespace halyard::test
