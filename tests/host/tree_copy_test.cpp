#include "host/tree_copy.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "host/files.h"
#include "host/umask.h"
#include "support/mounts.h"
#include "support/scratch.h"
#include "support/tree_listing.h"

namespace halyard::host {
namespace {

using test::listTree;
using test::Scratch;
using test::TestMount;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

struct stat statusOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status;
}

void setTimes(const std::string& path, time_t access, time_t change) {
  const struct timespec times[2] = {{access, 123456789}, {change, 987654321}};
  EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

void setAttribute(const std::string& path, const char* name, const std::string& value) {
  EXPECT_EQ(::lsetxattr(path.c_str(), name, value.data(), value.size(), 0), 0) << path << name;
}

std::string attribute(const std::string& path, const char* name) {
  char value[256] = {};
  const ssize_t size = ::lgetxattr(path.c_str(), name, value, sizeof value);
  return size < 0 ? "<none>" : std::string(value, static_cast<std::size_t>(size));
}

/// An access control list with one named user, as the kernel keeps it.
std::string accessList(std::uint16_t mask) {
  std::string list("\x02\x00\x00\x00", 4);
  const auto add = [&](std::uint16_t tag, std::uint16_t permissions, std::uint32_t id) {
    list.append(reinterpret_cast<const char*>(&tag), 2);
    list.append(reinterpret_cast<const char*>(&permissions), 2);
    list.append(reinterpret_cast<const char*>(&id), 4);
  };
  add(0x01, 6, 0xFFFFFFFF);
  add(0x02, 7, 4321);
  add(0x04, 0, 0xFFFFFFFF);
  add(0x10, mask, 0xFFFFFFFF);
  add(0x20, 4, 0xFFFFFFFF);
  return list;
}

/// cap_net_bind_service=ep, as the kernel keeps it.
std::string capability() {
  return {"\x01\x00\x00\x02\x00\x04\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00", 20};
}

void makeSocket(const std::string& path) {
  struct sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  EXPECT_EQ(::bind(socket, reinterpret_cast<struct sockaddr*>(&address), sizeof address), 0);
  ::close(socket);
}

#define NEEDS_ROOT() \
  if (::geteuid() != 0) GTEST_SKIP() << "needs root"

TEST(CopyItem, CopiesAFileWithModeAndTimes) {
  const Scratch scratch;
  const std::string file = scratch.write("file", "some text");
  ASSERT_EQ(::chmod(file.c_str(), 0604), 0);
  setTimes(file, 1000000000, 1100000000);
  const ScopedUmask mask(077);
  ASSERT_TRUE(copyItem(file, scratch / "copy"));
  EXPECT_EQ(statusOf(scratch / "copy").st_atim.tv_sec, 1000000000);
  EXPECT_EQ(statusOf(scratch / "copy").st_atim.tv_nsec, 123456789);
  EXPECT_EQ(listTree(scratch / "copy"), listTree(file));
  EXPECT_THAT(listDirectory(scratch.path()), ElementsAre("copy", "file"));
}

TEST(CopyItem, LeavesTheUmaskAndTheWorkingFolderAsTheyWere) {
  const Scratch scratch;
  const ScopedUmask mask(026);
  char before[4096];
  char after[4096];
  ASSERT_NE(::getcwd(before, sizeof before), nullptr);
  ASSERT_EQ(::symlink("target", (scratch / "link").c_str()), 0);
  ASSERT_TRUE(copyItem(scratch / "link", scratch / "copy"));
  ASSERT_NE(::getcwd(after, sizeof after), nullptr);
  EXPECT_STREQ(before, after);
  EXPECT_EQ(::umask(026), 026U);
}

TEST(CopyItem, CopiesATreeWithTheTimesOfItsFolders) {
  const Scratch scratch;
  for (const char* name : {"tree/a/b/file", "tree/a/other", "tree/top"}) scratch.write(name, name);
  scratch.makeFolder("tree/empty");
  ASSERT_EQ(::chmod((scratch / "tree/a").c_str(), 01711), 0);
  for (const char* name : {"tree/a/b", "tree/a", "tree/empty", "tree"}) {
    setTimes(scratch / name, 1200000000, 1300000000);
  }
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "copy"));
  EXPECT_EQ(listTree(scratch / "copy"), listTree(scratch / "tree"));
}

TEST(CopyItem, ClosedFoldersAndFilesAreCopiedAsTheyAre) {
  NEEDS_ROOT();
  const Scratch scratch;
  const std::string file = scratch.write("tree/closed/file", "text");
  ASSERT_EQ(::chmod(file.c_str(), 0), 0);
  ASSERT_EQ(::chmod((scratch / "tree/closed").c_str(), 0555), 0);
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "copy"));
  EXPECT_EQ(listTree(scratch / "copy"), listTree(scratch / "tree"));
}

TEST(CopyItem, KeepsOwnersAndSetIdBits) {
  NEEDS_ROOT();
  const Scratch scratch;
  for (const char* name : {"tree/program", "tree/second"}) {
    const std::string path = scratch.write(name, "code");
    ASSERT_EQ(::chown(path.c_str(), 1234, 2345), 0);
    ASSERT_EQ(::chmod(path.c_str(), 06755), 0);
  }
  ASSERT_EQ(::chown((scratch / "tree").c_str(), 0, 2345), 0);
  ASSERT_EQ(::chmod((scratch / "tree").c_str(), 02775), 0);
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "copy"));
  EXPECT_EQ(listTree(scratch / "copy"), listTree(scratch / "tree"));
  EXPECT_EQ(statusOf(scratch / "copy/second").st_mode & 07777, 06755U);
}

TEST(CopyItem, KeepsTheGroupInAFolderThatHandsDownItsOwn) {
  NEEDS_ROOT();
  const Scratch scratch;
  scratch.write("tree/file", "text");
  const std::string shared = scratch.makeFolder("shared");
  ASSERT_EQ(::chown(shared.c_str(), 0, 2345), 0);
  ASSERT_EQ(::chmod(shared.c_str(), 02775), 0);
  ASSERT_TRUE(copyItem(scratch / "tree", shared + "/copy"));
  ASSERT_TRUE(copyItem(scratch / "tree/file", shared + "/file"));
  EXPECT_EQ(listTree(shared + "/copy"), listTree(scratch / "tree"));
  EXPECT_EQ(listTree(shared + "/file"), listTree(scratch / "tree/file"));
}

TEST(CopyItem, KeepsExtendedAttributesOfFilesAndFolders) {
  const Scratch scratch;
  scratch.write("tree/file", "text");
  setAttribute(scratch / "tree/file", "user.note", std::string("a\0b", 3));
  setAttribute(scratch / "tree/file", "user.long", std::string(2000, 'x'));
  setAttribute(scratch / "tree", "user.folder", "note");
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "copy"));
  EXPECT_EQ(attribute(scratch / "copy/file", "user.note"), std::string("a\0b", 3));
  EXPECT_EQ(listTree(scratch / "copy"), listTree(scratch / "tree"));
}

TEST(CopyItem, KeepsAccessControlListsAndCapabilities) {
  NEEDS_ROOT();
  const Scratch scratch;
  const std::string file = scratch.write("tree/file", "text");
  ASSERT_EQ(::chown(file.c_str(), 1234, 1234), 0);
  setAttribute(file, "system.posix_acl_access", accessList(5));
  setAttribute(file, "security.capability", capability());
  setAttribute(scratch / "tree", "system.posix_acl_default", accessList(7));
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "copy"));
  EXPECT_EQ(attribute(scratch / "copy/file", "security.capability"), capability());
  EXPECT_EQ(attribute(scratch / "copy/file", "system.posix_acl_access"), accessList(5));
  EXPECT_EQ(listTree(scratch / "copy"), listTree(scratch / "tree"));
}

TEST(CopyItem, TakesNoAccessControlListFromTheFolderItStandsIn) {
  NEEDS_ROOT();
  const Scratch scratch;
  scratch.write("tree/inner/file", "text");
  const std::string shared = scratch.makeFolder("shared");
  setAttribute(shared, "system.posix_acl_default", accessList(7));
  ASSERT_TRUE(copyItem(scratch / "tree", shared + "/copy"));
  ASSERT_TRUE(copyItem(scratch / "tree/inner/file", shared + "/file"));
  EXPECT_EQ(listTree(shared + "/copy"), listTree(scratch / "tree"));
  EXPECT_EQ(listTree(shared + "/file"), listTree(scratch / "tree/inner/file"));
}

TEST(CopyItem, CopiesLinksAsLinks) {
  NEEDS_ROOT();
  const Scratch scratch;
  scratch.makeFolder("tree");
  ASSERT_EQ(::symlink("nothing/here", (scratch / "tree/dangling").c_str()), 0);
  ASSERT_EQ(::symlink("/", (scratch / "tree/up").c_str()), 0);
  ASSERT_EQ(::symlink(std::string(4000, 'x').c_str(), (scratch / "tree/long").c_str()), 0);
  ASSERT_EQ(::lchown((scratch / "tree/dangling").c_str(), 1234, 2345), 0);
  setAttribute(scratch / "tree/dangling", "trusted.note", "of the link");
  setTimes(scratch / "tree/dangling", 1000000000, 1100000000);
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "copy"));
  ASSERT_TRUE(copyItem(scratch / "tree/dangling", scratch / "single"));
  EXPECT_EQ(attribute(scratch / "copy/dangling", "trusted.note"), "of the link");
  EXPECT_EQ(listTree(scratch / "copy"), listTree(scratch / "tree"));
  EXPECT_EQ(listTree(scratch / "single"), listTree(scratch / "tree/dangling"));
}

TEST(CopyItem, KeepsHardLinksWithinTheItem) {
  const Scratch scratch;
  scratch.write("tree/first", "text");
  scratch.write("outside", "other");
  scratch.makeFolder("tree/a/deep");
  for (const char* name : {"tree/second", "tree/a/third", "tree/a/deep/fourth"}) {
    ASSERT_EQ(::link((scratch / "tree/first").c_str(), (scratch / name).c_str()), 0);
  }
  ASSERT_EQ(::link((scratch / "outside").c_str(), (scratch / "tree/shared").c_str()), 0);
  ASSERT_EQ(::mkfifo((scratch / "tree/fifo").c_str(), 0600), 0);
  ASSERT_EQ(::link((scratch / "tree/fifo").c_str(), (scratch / "tree/a/fifo").c_str()), 0);
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "copy"));
  EXPECT_EQ(listTree(scratch / "copy"), listTree(scratch / "tree"));
  EXPECT_EQ(statusOf(scratch / "copy/first").st_nlink, 4U);
  EXPECT_EQ(statusOf(scratch / "copy/shared").st_nlink, 1U);
}

TEST(CopyItem, KeepsHolesAndTheBytesBetweenThem) {
  const Scratch scratch;
  for (const off_t size : {70000, 64 << 20}) {
    const std::string path = scratch.write("sparse", "start");
    const int file = ::open(path.c_str(), O_WRONLY);
    ASSERT_EQ(::pwrite(file, "middle", 6, size / 2), 6);
    ASSERT_EQ(::ftruncate(file, size), 0);
    ::close(file);
    ASSERT_TRUE(copyItem(path, scratch / "copy"));
    EXPECT_EQ(statusOf(scratch / "copy").st_size, size);
    EXPECT_LE(statusOf(scratch / "copy").st_blocks, statusOf(path).st_blocks);
    EXPECT_EQ(std::system(("cmp '" + path + "' '" + (scratch / "copy") + "'").c_str()), 0);
    ASSERT_TRUE(removeItem(scratch / "copy"));
  }
}

TEST(CopyItem, CopiesAFileThatIsOneHole) {
  const Scratch scratch;
  const std::string path = scratch.write("hole");
  ASSERT_EQ(::truncate(path.c_str(), 10 << 20), 0);
  ASSERT_TRUE(copyItem(path, scratch / "copy"));
  EXPECT_EQ(statusOf(scratch / "copy").st_size, 10 << 20);
  EXPECT_EQ(statusOf(scratch / "copy").st_blocks, 0);
}

TEST(CopyItem, CopiesLargeFilesInFull) {
  const Scratch scratch;
  std::string bytes;
  while (bytes.size() < (3U << 20) + 17) bytes += std::to_string(bytes.size()) + "\n";
  const std::string path = scratch.write("large", bytes);
  ASSERT_TRUE(copyItem(path, scratch / "copy"));
  EXPECT_TRUE(Scratch::contents(scratch / "copy") == bytes);
}

TEST(CopyItem, ReadsFilesOfTheKernelToTheirEnd) {
  if (!exists("/proc/cpuinfo")) GTEST_SKIP() << "no /proc here";
  const Scratch scratch;
  ASSERT_TRUE(copyItem("/proc/version", scratch / "copy"));
  EXPECT_EQ(Scratch::contents(scratch / "copy"), Scratch::contents("/proc/version"));
  if (!exists("/sys/kernel/mm")) return;
  ASSERT_TRUE(copyItem("/sys/kernel/mm/transparent_hugepage/enabled", scratch / "enabled"));
  EXPECT_EQ(Scratch::contents(scratch / "enabled"),
            Scratch::contents("/sys/kernel/mm/transparent_hugepage/enabled"));
}

TEST(CopyItem, CopiesFifosSocketsAndDevicesWithoutOpeningThem) {
  NEEDS_ROOT();
  const Scratch scratch;
  scratch.makeFolder("tree");
  ASSERT_EQ(::mkfifo((scratch / "tree/fifo").c_str(), 0640), 0);
  makeSocket(scratch / "tree/socket");
  const std::string device = scratch / "tree/null";
  if (::mknod(device.c_str(), S_IFCHR | 0620, ::makedev(1, 3)) != 0) {
    GTEST_SKIP() << "devices cannot be made here";
  }
  ASSERT_EQ(::mknod((scratch / "tree/disk").c_str(), S_IFBLK | 0600, ::makedev(7, 200)), 0);
  ASSERT_EQ(::chown(device.c_str(), 1234, 5), 0);
  ASSERT_EQ(::chmod((scratch / "tree/fifo").c_str(), 04640), 0);
  setTimes(device, 1000000000, 1100000000);
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "copy"));
  EXPECT_EQ(listTree(scratch / "copy"), listTree(scratch / "tree"));
  ASSERT_TRUE(copyItem(device, scratch / "single"));
  EXPECT_EQ(listTree(scratch / "single"), listTree(device));
}

TEST(CopyItem, FailsWhenAnythingStandsAtTheDestination) {
  const Scratch scratch;
  scratch.write("file", "new");
  scratch.write("there", "old");
  scratch.makeFolder("empty");
  ASSERT_EQ(::symlink("nothing", (scratch / "dangling").c_str()), 0);
  EXPECT_FALSE(copyItem(scratch / "file", scratch / "there"));
  EXPECT_FALSE(copyItem(scratch / "file", scratch / "empty"));
  EXPECT_FALSE(copyItem(scratch / "file", scratch / "dangling"));
  EXPECT_FALSE(copyItem(scratch / "file", scratch / "file"));
  EXPECT_EQ(Scratch::contents(scratch / "there"), "old");
  EXPECT_THAT(listDirectory(scratch.path()), ElementsAre("dangling", "empty", "file", "there"));
}

TEST(CopyItem, FailsWithoutASourceOrAFolderForTheCopy) {
  const Scratch scratch;
  scratch.write("file", "text");
  EXPECT_FALSE(copyItem(scratch / "missing", scratch / "copy"));
  EXPECT_FALSE(copyItem(scratch / "file", scratch / "missing/copy"));
  EXPECT_FALSE(copyItem(scratch / "file", scratch / "file/copy"));
  EXPECT_FALSE(copyItem("", scratch / "copy"));
  EXPECT_FALSE(copyItem(scratch / "file", ""));
  EXPECT_THAT(listDirectory(scratch.path()), ElementsAre("file"));
}

TEST(CopyItem, FailsIntoTheSourceItself) {
  const Scratch scratch;
  scratch.write("tree/inner/file", "text");
  const auto before = listTree(scratch / "tree");
  EXPECT_FALSE(copyItem(scratch / "tree", scratch / "tree/copy"));
  EXPECT_FALSE(copyItem(scratch / "tree", scratch / "tree/inner/copy"));
  EXPECT_FALSE(copyItem(scratch / "tree/", scratch / "tree/inner/../copy"));
  EXPECT_EQ(listTree(scratch / "tree"), before);
}

TEST(CopyItem, FailsForTheRootFolder) {
  const Scratch scratch;
  EXPECT_FALSE(copyItem("/", scratch / "copy"));
  EXPECT_THAT(listDirectory(scratch.path()), ElementsAre());
}

TEST(CopyItem, CopiesAFolderWithManyEntries) {
  const Scratch scratch;
  scratch.makeFolder("tree");
  for (int i = 0; i < 12000; ++i) {
    const std::string path = (scratch / "tree/") + std::string(40, 'n') + std::to_string(i);
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    ASSERT_GE(file, 0);
    ::close(file);
  }
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "copy"));
  EXPECT_EQ(listDirectory(scratch / "copy"), listDirectory(scratch / "tree"));
}

class DeepTree {
 public:
  /// Folders of long names, so that the path is far longer than any call takes.
  DeepTree(const Scratch& scratch, int levels) {
    int folder = ::open(scratch.makeFolder("tree").c_str(), O_RDONLY | O_DIRECTORY);
    for (int level = 0; level < levels; ++level) {
      EXPECT_EQ(::mkdirat(folder, name().c_str(), 0750), 0);
      const int below = ::openat(folder, name().c_str(), O_RDONLY | O_DIRECTORY);
      ::close(folder);
      folder = below;
    }
    const int file = ::openat(folder, "bottom", O_WRONLY | O_CREAT | O_CLOEXEC, 0640);
    EXPECT_EQ(::write(file, "deep", 4), 4);
    EXPECT_EQ(::linkat(folder, "bottom", folder, "again", 0), 0);
    ::close(file);
    ::close(folder);
  }

  static std::string name() { return std::string(30, 'd'); }

  /// How many levels there are before "bottom"; -1 when it is not found.
  static int depth(const std::string& root) {
    int folder = ::open(root.c_str(), O_RDONLY | O_DIRECTORY);
    for (int level = 0; folder >= 0; ++level) {
      struct stat status = {};
      if (::fstatat(folder, "bottom", &status, 0) == 0) {
        ::close(folder);
        return status.st_size == 4 && status.st_nlink == 2 ? level : -1;
      }
      const int below = ::openat(folder, name().c_str(), O_RDONLY | O_DIRECTORY);
      ::close(folder);
      folder = below;
    }
    return -1;
  }
};

TEST(CopyItem, CopiesFiveThousandLevels) {
  const Scratch scratch;
  const DeepTree tree(scratch, 5000);
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "copy"));
  EXPECT_EQ(DeepTree::depth(scratch / "copy"), 5000);
  EXPECT_TRUE(removeItem(scratch / "copy"));
  EXPECT_FALSE(Scratch::stands(scratch / "copy"));
}

TEST(CopyItem, FindsHardLinksFarAbove) {
  const Scratch scratch;
  const DeepTree tree(scratch, 300);
  std::string folder = scratch / "tree";
  for (int level = 0; level < 100; ++level) folder += "/" + DeepTree::name();
  scratch.write("tree/top", "text");
  ASSERT_EQ(::link((scratch / "tree/top").c_str(), (folder + "/again").c_str()), 0);
  ASSERT_EQ(
      ::link((scratch / "tree/top").c_str(), (folder + "/" + DeepTree::name() + "/x").c_str()), 0);
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "copy"));
  EXPECT_EQ(statusOf(scratch / "copy/top").st_nlink, 3U);
}

TEST(StagedCopy, StandsBesideItsDestinationUntilItIsPublished) {
  const Scratch scratch;
  scratch.write("tree/file", "new");
  scratch.write("there", "old");
  auto copy = StagedCopy::stage(scratch / "tree", scratch / "there");
  ASSERT_TRUE(copy.has_value());
  EXPECT_EQ(listTree(copy->path()), listTree(scratch / "tree"));
  EXPECT_FALSE(copy->publish());
  EXPECT_EQ(Scratch::contents(scratch / "there"), "old");

  ASSERT_TRUE(moveItem(scratch / "there", scratch / "aside"));
  EXPECT_TRUE(copy->publish());
  EXPECT_EQ(copy->path(), scratch / "there");
  EXPECT_FALSE(copy->publish());
  EXPECT_THAT(listDirectory(scratch.path()), ElementsAre("aside", "there", "tree"));
}

TEST(StagedCopy, GoesAwayUnlessPublished) {
  const Scratch scratch;
  scratch.write("tree/file", "text");
  {
    auto copy = StagedCopy::stage(scratch / "tree", scratch / "copy");
    ASSERT_TRUE(copy.has_value());
    auto other = StagedCopy::stage(scratch / "tree/file", scratch / "copy");
    ASSERT_TRUE(other.has_value());
    *copy = std::move(*other);
    EXPECT_EQ(Scratch::contents(copy->path()), "text");
  }
  EXPECT_THAT(listDirectory(scratch.path()), ElementsAre("tree"));
}

TEST(StagedCopy, IsClosedToOthers) {
  const Scratch scratch;
  const std::string file = scratch.write("file", "text");
  const auto copy = StagedCopy::stage(file, scratch / "copy");
  ASSERT_TRUE(copy.has_value());
  const std::string folder = copy->path().substr(0, copy->path().rfind('/'));
  EXPECT_EQ(statusOf(folder).st_mode & 07777, 0700U);
}

TEST(CopyTree, ReportsWhatItCopied) {
  const Scratch scratch;
  scratch.write("tree/one", "12345");
  scratch.write("tree/a/two", "123");
  ASSERT_EQ(::symlink("one", (scratch / "tree/link").c_str()), 0);
  const TreeCopyReport report = copyTree(scratch / "tree", scratch / "copy");
  EXPECT_TRUE(report.complete);
  EXPECT_EQ(report.error, 0);
  EXPECT_EQ(report.items, 5U);
  EXPECT_EQ(report.copied, 2U);
  EXPECT_EQ(report.copiedBytes, 8U);
  EXPECT_EQ(listTree(scratch / "copy"), listTree(scratch / "tree"));
}

TEST(CopyTree, FailsWhenTheDestinationExists) {
  const Scratch scratch;
  scratch.write("tree/one", "12345");
  scratch.makeFolder("copy");
  EXPECT_EQ(copyTree(scratch / "tree", scratch / "copy").error, EEXIST);
  EXPECT_EQ(copyTree(scratch / "missing", scratch / "new").error, ENOENT);
  EXPECT_EQ(copyTree("", scratch / "new").error, ENOENT);
  EXPECT_EQ(copyTree(scratch / "tree", scratch / "no/new").error, ENOENT);
  EXPECT_THAT(listDirectory(scratch / "copy"), ElementsAre());
}

TEST(CopyTree, LinksUnchangedFilesToTheReference) {
  const Scratch scratch;
  for (const char* name : {"same", "size", "time", "mode", "note", "a/same"}) {
    scratch.write(std::string("tree/") + name, "text");
  }
  ASSERT_TRUE(copyTree(scratch / "tree", scratch / "first").complete);
  scratch.write("tree/size", "longer");
  setTimes(scratch / "tree/time", 1000000000, 1100000000);
  ASSERT_EQ(::chmod((scratch / "tree/mode").c_str(), 0600), 0);
  setAttribute(scratch / "tree/note", "user.note", "new");
  scratch.write("tree/b/new", "text");

  TreeCopyOptions options;
  options.reference = scratch / "first";
  const TreeCopyReport report = copyTree(scratch / "tree", scratch / "second", options);
  EXPECT_TRUE(report.complete);
  EXPECT_EQ(report.linked, 2U);
  EXPECT_EQ(report.linkedBytes, 8U);
  EXPECT_EQ(report.copied, 5U);
  EXPECT_EQ(listTree(scratch / "second"), listTree(scratch / "tree"));
  const auto inodeIn = [&](const char* tree, const char* name) {
    return statusOf(scratch / tree + "/" + name).st_ino;
  };
  EXPECT_EQ(inodeIn("second", "same"), inodeIn("first", "same"));
  EXPECT_EQ(inodeIn("second", "a/same"), inodeIn("first", "a/same"));
  for (const char* name : {"size", "time", "mode", "note"}) {
    EXPECT_NE(inodeIn("second", name), inodeIn("first", name)) << name;
  }
}

TEST(CopyTree, CopiesAfreshWhatTheReferenceHasAsAnotherKind) {
  const Scratch scratch;
  scratch.write("tree/folder/file", "text");
  scratch.write("tree/item", "text");
  scratch.write("reference/folder", "no folder here");
  ASSERT_EQ(::mkfifo((scratch / "reference/item").c_str(), 0644), 0);
  TreeCopyOptions options;
  options.reference = scratch / "reference";
  EXPECT_TRUE(copyTree(scratch / "tree", scratch / "copy", options).complete);
  EXPECT_EQ(listTree(scratch / "copy"), listTree(scratch / "tree"));
  options.reference = scratch / "missing";
  EXPECT_TRUE(copyTree(scratch / "tree", scratch / "other", options).complete);
  EXPECT_EQ(listTree(scratch / "other"), listTree(scratch / "tree"));
}

TEST(CopyTree, KeepsHardLinksOfFilesThatItLinksToTheReference) {
  const Scratch scratch;
  scratch.write("tree/one", "text");
  ASSERT_EQ(::link((scratch / "tree/one").c_str(), (scratch / "tree/two").c_str()), 0);
  ASSERT_TRUE(copyTree(scratch / "tree", scratch / "first").complete);
  TreeCopyOptions options;
  options.reference = scratch / "first";
  ASSERT_TRUE(copyTree(scratch / "tree", scratch / "second", options).complete);
  EXPECT_EQ(listTree(scratch / "second"), listTree(scratch / "tree"));
  EXPECT_EQ(statusOf(scratch / "second/one").st_nlink, 4U);
}

TEST(CopyTree, LeavesOutWhatIsExcluded) {
  const Scratch scratch;
  for (const char* name : {"tree/a/skip/x", "tree/a/keep", "tree/skip", "tree/b"}) {
    scratch.write(name, "text");
  }
  std::vector<std::string> asked;
  TreeCopyOptions options;
  options.excluded = [&](std::string_view path) {
    asked.emplace_back(path);
    return path == "a/skip" || path == "b";
  };
  EXPECT_TRUE(copyTree(scratch / "tree", scratch / "copy", options).complete);
  EXPECT_THAT(asked, UnorderedElementsAre("a", "b", "skip", "a/keep", "a/skip"));
  EXPECT_THAT(listDirectory(scratch / "copy"), ElementsAre("a", "skip"));
  EXPECT_THAT(listDirectory(scratch / "copy/a"), ElementsAre("keep"));
}

TEST(CopyTree, LeavesOutItsOwnDestination) {
  const Scratch scratch;
  scratch.write("tree/file", "text");
  scratch.makeFolder("tree/a/snapshots");
  const TreeCopyReport report = copyTree(scratch / "tree", scratch / "tree/a/snapshots/new");
  EXPECT_TRUE(report.complete);
  EXPECT_EQ(Scratch::contents(scratch / "tree/a/snapshots/new/file"), "text");
  EXPECT_THAT(listDirectory(scratch / "tree/a/snapshots/new/a/snapshots"), ElementsAre());
}

TEST(CopyTree, MergesFoldersAndReplacesOtherItems) {
  const Scratch scratch;
  scratch.write("tree/a/file", "new");
  scratch.write("tree/a/was-folder", "new");
  scratch.write("tree/was-file/inner", "new");
  scratch.write("tree/was-link/inner", "new");
  ASSERT_EQ(::symlink("new", (scratch / "tree/link").c_str()), 0);
  scratch.write("there/a/file", "old");
  scratch.write("there/a/other", "kept");
  scratch.write("there/a/was-folder/inner", "old");
  scratch.write("there/was-file", "old");
  scratch.write("victim/inner", "kept");
  ASSERT_EQ(::symlink("../victim", (scratch / "there/was-link").c_str()), 0);
  scratch.write("there/link", "old");
  setAttribute(scratch / "there/a", "user.old", "gone");
  setTimes(scratch / "tree/a", 1000000000, 1100000000);
  ASSERT_EQ(::chmod((scratch / "tree/a").c_str(), 0711), 0);

  TreeCopyOptions options;
  options.intoExisting = true;
  const TreeCopyReport report = copyTree(scratch / "tree", scratch / "there", options);
  EXPECT_TRUE(report.complete);
  EXPECT_EQ(Scratch::contents(scratch / "there/a/other"), "kept");
  EXPECT_EQ(Scratch::contents(scratch / "victim/inner"), "kept");
  ASSERT_TRUE(removeItem(scratch / "there/a/other"));
  setTimes(scratch / "there/a", 1000000000, 1100000000);
  EXPECT_EQ(listTree(scratch / "there"), listTree(scratch / "tree"));
}

TEST(CopyTree, MergesHardLinksAsTheyAreInTheSource) {
  const Scratch scratch;
  scratch.write("tree/one", "text");
  ASSERT_EQ(::link((scratch / "tree/one").c_str(), (scratch / "tree/two").c_str()), 0);
  TreeCopyOptions options;
  options.intoExisting = true;
  ASSERT_TRUE(copyTree(scratch / "tree", scratch / "there", options).complete);
  ASSERT_TRUE(copyTree(scratch / "tree", scratch / "there", options).complete);
  EXPECT_EQ(listTree(scratch / "there"), listTree(scratch / "tree"));
}

TEST(CopyTree, GivesMergedFoldersNoForeignAccessControlLists) {
  NEEDS_ROOT();
  const Scratch scratch;
  scratch.write("tree/a/b/file", "text");
  scratch.write("tree/a/file", "text");
  setAttribute(scratch.makeFolder("there/a"), "system.posix_acl_default", accessList(7));
  TreeCopyOptions options;
  options.intoExisting = true;
  ASSERT_TRUE(copyTree(scratch / "tree", scratch / "there", options).complete);
  EXPECT_EQ(listTree(scratch / "there"), listTree(scratch / "tree"));
}

TEST(CopyTree, MergesThroughALinkAtTheRootOnly) {
  const Scratch scratch;
  scratch.write("tree/file", "text");
  scratch.makeFolder("real");
  ASSERT_EQ(::symlink("real", (scratch / "there").c_str()), 0);
  TreeCopyOptions options;
  options.intoExisting = true;
  EXPECT_TRUE(copyTree(scratch / "tree", scratch / "there", options).complete);
  EXPECT_EQ(Scratch::contents(scratch / "real/file"), "text");
}

TEST(CopyTree, TellsOfWhatItCannotCopyAndGoesOn) {
  const Scratch scratch;
  scratch.write("tree/a/first", "text");
  scratch.write("tree/b/file", "text");
  // A folder of the destination that is the source's own folder cannot be merged.
  scratch.makeFolder("there");
  std::vector<std::string> failures;
  TreeCopyOptions options;
  options.intoExisting = true;
  options.failed = [&](std::string_view path, int error) {
    failures.push_back(std::string(path) + ":" + std::to_string(error));
    return true;
  };
  const TreeCopyReport report = copyTree(scratch / "tree", scratch / "tree", options);
  EXPECT_FALSE(report.complete);
  EXPECT_EQ(report.error, EINVAL);
  EXPECT_THAT(failures, ElementsAre(":" + std::to_string(EINVAL)));
}

TEST(CopyItem, AFullDiskLeavesNothing) {
  const Scratch scratch;
  scratch.write("tree/a", std::string(40000, 'x'));
  scratch.write("tree/b", std::string(40000, 'x'));
  scratch.write("large", std::string(500000, 'x'));
  const TestMount disk = TestMount::memory(scratch / "disk", "size=64k");
  if (!disk.isMounted()) GTEST_SKIP() << "cannot mount here";
  EXPECT_FALSE(copyItem(scratch / "tree", scratch / "disk/copy"));
  EXPECT_FALSE(copyItem(scratch / "large", scratch / "disk/copy"));
  EXPECT_THAT(listDirectory(scratch / "disk"), ElementsAre());
}

TEST(CopyItem, NoInodesLeftLeavesNothing) {
  const Scratch scratch;
  for (int i = 0; i < 10; ++i) scratch.write("tree/a/" + std::to_string(i));
  const TestMount disk = TestMount::memory(scratch / "disk", "nr_inodes=8");
  if (!disk.isMounted()) GTEST_SKIP() << "cannot mount here";
  EXPECT_FALSE(copyItem(scratch / "tree", scratch / "disk/copy"));
  EXPECT_THAT(listDirectory(scratch / "disk"), ElementsAre());
}

TEST(CopyItem, AReadOnlyDiskLeavesNothing) {
  const Scratch scratch;
  scratch.write("file", "text");
  const TestMount disk = TestMount::memory(scratch / "disk", "size=64k");
  if (!disk.isMounted()) GTEST_SKIP() << "cannot mount here";
  disk.makeReadOnly();
  EXPECT_FALSE(copyItem(scratch / "file", scratch / "disk/copy"));
  EXPECT_FALSE(createDirectory(scratch / "disk/folder"));
  EXPECT_FALSE(writeFile(scratch / "disk/file", "text"));
  EXPECT_FALSE(createOrEmptyFile(scratch / "disk/file", 0770));
  EXPECT_THAT(listDirectory(scratch / "disk"), ElementsAre());
}

TEST(CopyItem, FailsIntoTheSourceThroughAnotherMount) {
  const Scratch scratch;
  scratch.write("tree/inner/file", "text");
  const TestMount again = TestMount::bind(scratch / "again", scratch / "tree/inner");
  if (!again.isMounted()) GTEST_SKIP() << "cannot mount here";
  EXPECT_FALSE(copyItem(scratch / "tree", scratch / "again/copy"));
  EXPECT_THAT(listDirectory(scratch / "again"), ElementsAre("file"));
}

TEST(MoveItem, CopiesAndRemovesAcrossFileSystems) {
  NEEDS_ROOT();
  const Scratch scratch;
  const TestMount disk = TestMount::memory(scratch / "disk", "size=1m");
  if (!disk.isMounted()) GTEST_SKIP() << "cannot mount here";
  scratch.write("tree/a/file", "text");
  ASSERT_EQ(::symlink("nothing", (scratch / "tree/link").c_str()), 0);
  ASSERT_EQ(::chown((scratch / "tree/a/file").c_str(), 1234, 2345), 0);
  setTimes(scratch / "tree/a", 1000000000, 1100000000);
  const auto before = listTree(scratch / "tree");
  ASSERT_TRUE(moveItem(scratch / "tree", scratch / "disk/moved"));
  EXPECT_EQ(listTree(scratch / "disk/moved"), before);
  EXPECT_FALSE(Scratch::stands(scratch / "tree"));
}

TEST(MoveItem, KeepsTheOriginalWhenTheOtherFileSystemIsFull) {
  const Scratch scratch;
  const TestMount disk = TestMount::memory(scratch / "disk", "size=64k");
  if (!disk.isMounted()) GTEST_SKIP() << "cannot mount here";
  scratch.write("tree/file", std::string(200000, 'x'));
  scratch.write("disk/there", "old");
  const auto before = listTree(scratch / "tree");
  EXPECT_FALSE(moveItem(scratch / "tree", scratch / "disk/moved"));
  EXPECT_FALSE(moveItem(scratch / "tree", scratch / "disk/there"));
  EXPECT_EQ(listTree(scratch / "tree"), before);
  EXPECT_THAT(listDirectory(scratch / "disk"), ElementsAre("there"));
}

TEST(CopyTree, EndsOnAFullDiskEvenWhenItIsToGoOn) {
  const Scratch scratch;
  scratch.write("tree/a", std::string(500000, 'x'));
  scratch.write("tree/b/c", "text");
  const TestMount disk = TestMount::memory(scratch / "disk", "size=64k");
  if (!disk.isMounted()) GTEST_SKIP() << "cannot mount here";
  int failures = 0;
  TreeCopyOptions options;
  options.failed = [&](std::string_view, int) {
    ++failures;
    return true;
  };
  const TreeCopyReport report = copyTree(scratch / "tree", scratch / "disk/copy", options);
  EXPECT_EQ(report.error, ENOSPC);
  EXPECT_FALSE(report.complete);
  EXPECT_EQ(failures, 0);
  EXPECT_FALSE(Scratch::stands(scratch / "disk/copy/a"));
}

TEST(CopyTree, StaysOnOneFileSystemWhenTold) {
  const Scratch scratch;
  scratch.write("tree/file", "text");
  const TestMount inner = TestMount::memory(scratch / "tree/mounted", "size=1m");
  const TestMount again = TestMount::bind(scratch / "tree/again", scratch / "tree/mounted");
  if (!inner.isMounted() || !again.isMounted()) GTEST_SKIP() << "cannot mount here";
  scratch.write("tree/mounted/inner", "text");
  TreeCopyOptions options;
  options.oneFileSystem = true;
  EXPECT_TRUE(copyTree(scratch / "tree", scratch / "copy", options).complete);
  EXPECT_THAT(listDirectory(scratch / "copy"), ElementsAre("again", "file", "mounted"));
  EXPECT_THAT(listDirectory(scratch / "copy/mounted"), ElementsAre());
  EXPECT_THAT(listDirectory(scratch / "copy/again"), ElementsAre());
  EXPECT_TRUE(copyItem(scratch / "tree", scratch / "whole"));
  EXPECT_THAT(listDirectory(scratch / "whole/mounted"), ElementsAre("inner"));
}

TEST(CopyTree, CopiesAfreshWhereTheReferenceIsOnAnotherFileSystem) {
  const Scratch scratch;
  scratch.write("tree/file", "text");
  const TestMount disk = TestMount::memory(scratch / "disk", "size=1m");
  if (!disk.isMounted()) GTEST_SKIP() << "cannot mount here";
  ASSERT_TRUE(copyTree(scratch / "tree", scratch / "disk/first").complete);
  TreeCopyOptions options;
  options.reference = scratch / "disk/first";
  const TreeCopyReport report = copyTree(scratch / "tree", scratch / "second", options);
  EXPECT_TRUE(report.complete);
  EXPECT_EQ(report.linked, 0U);
  EXPECT_EQ(report.copied, 1U);
}

/// A tree with something of everything.
void makeRichTree(const Scratch& scratch) {
  const std::string file = scratch.write("tree/a/file", "text");
  scratch.write("tree/a/large", std::string(300000, 'x'));
  ASSERT_EQ(::truncate(scratch.write("tree/a/sparse", "start").c_str(), 5 << 20), 0);
  ASSERT_EQ(::link(file.c_str(), (scratch / "tree/again").c_str()), 0);
  ASSERT_EQ(::symlink("nothing", (scratch / "tree/link").c_str()), 0);
  ASSERT_EQ(::mkfifo((scratch / "tree/fifo").c_str(), 0622), 0);
  ASSERT_EQ(::chown(file.c_str(), 1234, 2345), 0);
  ASSERT_EQ(::chmod(file.c_str(), 04755), 0);
  setAttribute(file, "user.note", "text");
  setAttribute(file, "security.capability", capability());
  setAttribute(scratch / "tree/a", "system.posix_acl_default", accessList(7));
  for (const char* name : {"tree/link", "tree/a", "tree"}) {
    setTimes(scratch / name, 1000000000, 1100000000);
  }
}

class BetweenFileSystems : public ::testing::TestWithParam<const char*> {};

TEST_P(BetweenFileSystems, EverythingIsKeptThereAndBack) {
  NEEDS_ROOT();
  const Scratch scratch;
  makeRichTree(scratch);
  const TestMount disk = TestMount::image(scratch / "disk", GetParam(), 320);
  if (!disk.isMounted()) GTEST_SKIP() << "no " << GetParam() << " here";
  const auto before = listTree(scratch / "tree");
  ASSERT_TRUE(copyItem(scratch / "tree", scratch / "disk/copy"));
  EXPECT_EQ(listTree(scratch / "disk/copy"), before);
  EXPECT_LT(statusOf(scratch / "disk/copy/a/sparse").st_blocks, 1024);
  ASSERT_TRUE(copyItem(scratch / "disk/copy", scratch / "disk/second"));
  EXPECT_EQ(listTree(scratch / "disk/second"), before);
  ASSERT_TRUE(moveItem(scratch / "disk/second", scratch / "back"));
  EXPECT_EQ(listTree(scratch / "back"), before);
  EXPECT_LT(statusOf(scratch / "back/a/sparse").st_blocks, 1024);
  EXPECT_TRUE(removeItem(scratch / "disk/copy"));
}

INSTANTIATE_TEST_SUITE_P(Kinds, BetweenFileSystems, ::testing::Values("ext4", "btrfs", "xfs"),
                         [](const auto& kind) { return std::string(kind.param); });

}  // namespace
}  // namespace halyard::host
