// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/volumes/alias.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>

#include "host/process/task.h"
#include "support/forked.h"
#include "support/loop_volume.h"
#include "support/scratch.h"

namespace halyard::host {
namespace {

using test::LoopVolume;
using test::Scratch;

std::string resolved(std::string_view record) { return resolveAlias(record).value_or("(absent)"); }

/// Pure path and text cases, for which fstab does not matter.
TEST(ResolveAlias, AnExistingFolderIsItself) {
  const Scratch scratch;
  EXPECT_EQ(resolved(scratch.path()), scratch.path());
}

TEST(ResolveAlias, TrailingNulsAreDropped) {
  const Scratch scratch;
  EXPECT_EQ(resolved(scratch.path() + std::string(3, '\0')), scratch.path());
}

TEST(ResolveAlias, ANulInsideIsAbsent) {
  EXPECT_EQ(resolved(std::string_view("/tmp\0x", 6)), "(absent)");
}

TEST(ResolveAlias, AnEmptyRecordIsAbsent) {
  EXPECT_EQ(resolved(""), "(absent)");
  EXPECT_EQ(resolved(std::string_view("\0\0", 2)), "(absent)");
}

TEST(ResolveAlias, ARelativePathIsAbsent) {
  EXPECT_EQ(resolved("tmp"), "(absent)");
  EXPECT_EQ(resolved("."), "(absent)");
}

TEST(ResolveAlias, ADeviceIsAbsent) {
  EXPECT_EQ(resolved("/dev/sda1"), "(absent)");
  EXPECT_EQ(resolved("/dev/shm"), "(absent)");
}

TEST(ResolveAlias, AMissingPathAndAFileAreAbsent) {
  const Scratch scratch;
  EXPECT_EQ(resolved(scratch / "missing"), "(absent)");
  EXPECT_EQ(resolved(scratch.write("file")), "(absent)");
}

TEST(ResolveAlias, APathStaysAsItIsWritten) {
  const Scratch scratch;
  (void)scratch.makeFolder("folder");
  ASSERT_EQ(::symlink("folder", (scratch / "link").c_str()), 0);
  for (const char* name : {"folder/", "folder/../folder", "./folder//", "link"}) {
    EXPECT_EQ(resolved(scratch / name), scratch / name);
  }
}

TEST(ResolveAlias, UnknownTagsAreAbsent) {
  for (const char* record : {"UUID=", "LABEL=", "UUID=\"\"", "ID=x", "uuid=x", "=x", "NAME", "=",
                             "LABEL=no volume has this label", "host:/share", "//host/share"}) {
    EXPECT_EQ(resolved(record), "(absent)") << record;
  }
}

/// Cases that mount: each acts in a child with an /etc of its own.
class ResolveAliasMounts : public testing::Test {
 protected:
  void SetUp() override {
    if (!test::canMountPrivately()) GTEST_SKIP() << "mounting needs root";
  }

  /// What the function gives in a child whose /etc holds only this fstab; mounts end with it.
  std::string withFstab(const std::string& fstab, const std::function<std::string()>& act) const {
    const int status = test::exitStatusOf([&] {
      if (!test::enterPrivateMounts()) return 1;
      // /run too: the device cache there is the host's.
      for (const char* folder : {"/etc", "/run"}) {
        if (::mount("none", folder, "tmpfs", 0, nullptr) != 0) return 2;
      }
      std::ofstream("/etc/fstab") << fstab;
      std::ofstream(scratch_ / "answer") << act();
      return 0;
    });
    EXPECT_EQ(status, 0);
    return Scratch::contents(scratch_ / "answer");
  }

  Scratch scratch_;
};

#define REQUIRE_VOLUME(volume) \
  if (!(volume).isReady()) GTEST_SKIP() << "no loop device or no mkfs"

TEST_F(ResolveAliasMounts, ATagIsWhereItsVolumeIsMounted) {
  const LoopVolume volume(scratch_, "ext4", "halyard-one");
  REQUIRE_VOLUME(volume);
  const std::string folder = scratch_.makeFolder("volume");

  EXPECT_EQ(withFstab("",
                      [&] {
                        if (!volume.mountAt(folder)) return std::string("not mounted");
                        return resolved("UUID=" + volume.uuid()) + " " +
                               resolved("LABEL=halyard-one") + " " +
                               resolved("LABEL=\"halyard-one\"") + " " + resolved(folder);
                      }),
            folder + " " + folder + " " + folder + " " + folder);
}

TEST_F(ResolveAliasMounts, AVolumeThatIsNotMountedAndNotListedIsAbsent) {
  const LoopVolume volume(scratch_, "ext4", "halyard-two");
  REQUIRE_VOLUME(volume);
  EXPECT_EQ(withFstab("", [] { return resolved("LABEL=halyard-two"); }), "(absent)");
}

TEST_F(ResolveAliasMounts, AListedVolumeIsMountedByItsTag) {
  const LoopVolume volume(scratch_, "ext4", "halyard-three");
  REQUIRE_VOLUME(volume);
  const std::string folder = scratch_.makeFolder("with blank");
  const std::string listed = scratch_ / "with\\040blank";

  EXPECT_EQ(withFstab("LABEL=halyard-three " + listed + " ext4 noauto 0 0\n",
                      [&] {
                        return resolved("LABEL=halyard-three") + " " +
                               test::outputOf("stat -f -c %T '" + folder + "'");
                      }),
            folder + " ext2/ext3");
}

TEST_F(ResolveAliasMounts, FstabMayUseAnotherNameOfTheVolume) {
  const LoopVolume volume(scratch_, "btrfs", "halyard-four");
  REQUIRE_VOLUME(volume);
  const std::string folder = scratch_.makeFolder("volume");

  EXPECT_EQ(withFstab("broken line\n" + volume.device() + " " + folder + " btrfs noauto 0 0\n",
                      [&] { return resolved("UUID=" + volume.uuid()); }),
            folder);
}

TEST_F(ResolveAliasMounts, AListedPathIsMountedFirst) {
  const LoopVolume volume(scratch_, "ext4", "halyard-five");
  REQUIRE_VOLUME(volume);
  const std::string folder = scratch_.makeFolder("volume");

  // The text in fstab ends in a slash, the record names the path in a roundabout way.
  EXPECT_EQ(withFstab("UUID=" + volume.uuid() + " " + folder + "/ ext4 noauto 0 0\n",
                      [&] {
                        const std::string path = folder + "/../volume";
                        return resolved(path) == path
                                   ? test::outputOf("stat -f -c %T '" + folder + "'")
                                   : "absent";
                      }),
            "ext2/ext3");
}

TEST_F(ResolveAliasMounts, ALinkIntoAVolumeThatIsNotMountedYetIsFollowed) {
  const LoopVolume volume(scratch_, "ext4", "halyard-six");
  REQUIRE_VOLUME(volume);
  const std::string folder = scratch_.makeFolder("volume");
  ASSERT_EQ(::symlink("volume/inside/backups", (scratch_ / "outer").c_str()), 0);

  // On the volume another link leads on: only once it is mounted can that be seen.
  EXPECT_EQ(withFstab("UUID=" + volume.uuid() + " " + folder + " ext4 noauto 0 0\n",
                      [&] {
                        if (!volume.mountAt(folder)) return std::string("not mounted");
                        (void)::mkdir((folder + "/real").c_str(), 0755);
                        (void)::mkdir((folder + "/real/backups").c_str(), 0755);
                        (void)::symlink("real", (folder + "/inside").c_str());
                        (void)::umount(folder.c_str());
                        return resolved(scratch_ / "outer") + " " +
                               test::outputOf("stat -f -c %T '" + folder + "'");
                      }),
            (scratch_ / "outer") + " ext2/ext3");
}

TEST_F(ResolveAliasMounts, ALinkThatLeadsNowhereOrInACircleIsAbsent) {
  ASSERT_EQ(::symlink("missing", (scratch_ / "nowhere").c_str()), 0);
  ASSERT_EQ(::symlink("circle", (scratch_ / "circle").c_str()), 0);
  EXPECT_EQ(withFstab("LABEL=nowhere " + (scratch_ / "volume") + " ext4 noauto 0 0\n",
                      [&] {
                        return resolved(scratch_ / "nowhere") + " " + resolved(scratch_ / "circle");
                      }),
            "(absent) (absent)");
}

TEST_F(ResolveAliasMounts, AListedPathThatCannotBeMountedIsAbsent) {
  const std::string folder = scratch_.makeFolder("volume");
  EXPECT_EQ(withFstab("LABEL=nowhere " + folder + " ext4 noauto 0 0\n",
                      [&] { return resolved(folder) + " " + resolved(folder + "/"); }),
            "(absent) (absent)");
}

TEST_F(ResolveAliasMounts, AFolderUnderAMissingVolumeIsAbsent) {
  const std::string folder = scratch_.makeFolder("volume/backups");
  ASSERT_EQ(::symlink("volume/backups", (scratch_ / "link").c_str()), 0);
  EXPECT_EQ(withFstab("LABEL=nowhere " + (scratch_ / "volume") + " ext4 noauto 0 0\n",
                      [&] { return resolved(folder) + " " + resolved(scratch_ / "link"); }),
            "(absent) (absent)");
}

TEST_F(ResolveAliasMounts, AListedPathWithSomethingMountedIsItself) {
  const std::string folder = scratch_.makeFolder("volume");
  EXPECT_EQ(withFstab("LABEL=nowhere " + folder + " ext4 noauto 0 0\n",
                      [&] {
                        (void)::mount("none", folder.c_str(), "tmpfs", 0, nullptr);
                        return resolved(folder);
                      }),
            folder);
}

TEST_F(ResolveAliasMounts, AMountThatAnotherHidesDoesNotCount) {
  const LoopVolume volume(scratch_, "ext4", "halyard-six");
  REQUIRE_VOLUME(volume);
  const std::string folder = scratch_.makeFolder("volume");
  EXPECT_EQ(withFstab("",
                      [&] {
                        (void)volume.mountAt(folder);
                        (void)::mount("none", folder.c_str(), "tmpfs", 0, nullptr);
                        return resolved("LABEL=halyard-six");
                      }),
            "(absent)");
}

TEST_F(ResolveAliasMounts, TheWholeVolumeComesBeforeAPartOfIt) {
  const LoopVolume volume(scratch_, "ext4", "halyard-seven");
  REQUIRE_VOLUME(volume);
  const std::string whole = scratch_.makeFolder("whole");
  const std::string part = scratch_.makeFolder("part");
  const std::string other = scratch_.makeFolder("other");
  EXPECT_EQ(withFstab("",
                      [&] {
                        (void)volume.mountAt(other);
                        ::mkdir((other + "/inner").c_str(), 0755);
                        (void)::mount((other + "/inner").c_str(), part.c_str(), nullptr, MS_BIND,
                                      nullptr);
                        (void)::mount(other.c_str(), whole.c_str(), nullptr, MS_BIND, nullptr);
                        (void)::umount(other.c_str());
                        const std::string both = resolved("LABEL=halyard-seven");
                        (void)::umount(whole.c_str());
                        return both + " " + resolved("LABEL=halyard-seven");
                      }),
            whole + " " + part);
}

/// A loop device with one partition, "halyard-part", that holds a file system.
class PartitionedDisk {
 public:
  explicit PartitionedDisk(const Scratch& scratch) {
    const std::string image = scratch / "disk.img";
    if (!run("truncate -s 64M " + image +
             " && printf 'label: gpt\\nname=halyard-part\\n' | sfdisk " + image)) {
      return;
    }
    disk_ = test::outputOf("losetup -f --show " + image);
    // partx reads the table itself: not every kernel knows every kind of table.
    ready_ = !disk_.empty() && run("partx -a " + disk_) && run("mkfs.ext4 -q " + partition());
  }
  PartitionedDisk(const PartitionedDisk&) = delete;
  PartitionedDisk& operator=(const PartitionedDisk&) = delete;
  ~PartitionedDisk() {
    if (disk_.empty()) return;
    EXPECT_TRUE(run("partx -d " + disk_ + "; losetup -d " + disk_));
  }

  bool isReady() const { return ready_; }
  std::string partition() const { return disk_ + "p1"; }

 private:
  static bool run(const std::string& command) {
    return std::system(("{ " + command + "; } >/dev/null 2>&1").c_str()) == 0;
  }

  std::string disk_;
  bool ready_ = false;
};

TEST_F(ResolveAliasMounts, PartitionTagsResolve) {
  const PartitionedDisk disk(scratch_);
  if (!disk.isReady()) GTEST_SKIP() << "no sfdisk, or no partitions on loop devices";
  const std::string folder = scratch_.makeFolder("volume");
  const std::string uuid =
      test::outputOf("blkid -p -o value -s PART_ENTRY_UUID " + disk.partition());
  EXPECT_EQ(withFstab("",
                      [&] {
                        (void)::mount(disk.partition().c_str(), folder.c_str(), "ext4", 0, nullptr);
                        return resolved("PARTLABEL=halyard-part") + " " +
                               resolved("PARTUUID=" + uuid);
                      }),
            folder + " " + folder);
}

TEST_F(ResolveAliasMounts, NoEnvironmentVariableMovesFstab) {
  const std::string folder = scratch_.makeFolder("volume");
  const std::string other = scratch_.write("fstab", "none " + folder + " tmpfs defaults 0 0\n");
  EXPECT_EQ(withFstab("LABEL=nowhere " + folder + " ext4 noauto 0 0\n",
                      [&] {
                        ::setenv("LIBMOUNT_FSTAB", other.c_str(), 1);
                        return resolved(folder);
                      }),
            "(absent)");
}

TEST_F(ResolveAliasMounts, AHelperThatAsksFindsNobody) {
  const std::string folder = scratch_.makeFolder("volume");
  const std::string seen = scratch_ / "seen";
  const std::string marker = scratch_.write("marker");
  EXPECT_EQ(withFstab("none " + folder + " asking noauto 0 0\n",
                      [&]() -> std::string {
                        if (::mount("none", "/usr/sbin", "tmpfs", 0, nullptr) != 0)
                          return "no helper folder";
                        std::ofstream("/usr/sbin/mount.asking")
                            << "#!/bin/sh\n"
                               "output=$(readlink /proc/$$/fd/1)\n"
                               "{ read answer || echo 'no input'\n"
                               "(: </dev/tty) 2>/dev/null || echo 'no terminal'\n"
                               "echo \"output to $output\"\n"
                               "ls -l /proc/$$/fd | grep -c marker; } >>"
                            << seen
                            << "\n"
                               "exit 1\n";
                        ::chmod("/usr/sbin/mount.asking", 0755);
                        // Without a terminal of its own the child could not show that the helper
                        // has none.
                        ::setsid();
                        const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
                        if (terminal < 0 || ::grantpt(terminal) != 0 || ::unlockpt(terminal) != 0)
                          return "no pty";
                        const int line = ::open(::ptsname(terminal), O_RDWR | O_NOCTTY);
                        if (::ioctl(line, TIOCSCTTY, 0) != 0 || ::open("/dev/tty", O_RDWR) < 0)
                          return "no tty";
                        ::dup2(line, STDIN_FILENO);
                        if (::open(marker.c_str(), O_RDONLY) < 0)
                          return "no marker";  // Meant to be inherited.
                        return resolved(folder);
                      }),
            "(absent)");
  EXPECT_EQ(Scratch::contents(seen), "no input\nno terminal\noutput to /dev/null\n0\n");
}

bool isLibraryLoaded() {
  return Scratch::contents("/proc/self/maps").find("libmount") != std::string::npos;
}

TEST_F(ResolveAliasMounts, APlainPathLoadsNoLibrary) {
  if (isLibraryLoaded()) {
    // An earlier test has loaded it: only a process of its own can show anything.
    EXPECT_EQ(RunTask("/proc/self/exe", {"--gtest_filter=*.APlainPathLoadsNoLibrary"}).status, 0);
    return;
  }
  const std::string folder = scratch_.makeFolder("folder");
  EXPECT_EQ(withFstab("LABEL=x /elsewhere ext4 noauto 0 0\n",
                      [&] { return resolved(folder) + (isLibraryLoaded() ? " loaded" : ""); }),
            folder);
}

}  // namespace
}  // namespace halyard::host
