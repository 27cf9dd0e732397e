// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What a watcher is shown of a file is what its copy holds, whatever the source does meanwhile.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <string>

#include "host/files/descriptor.h"
#include "host/tree/file_data_copy.h"
#include "support/mounted_volume.h"
#include "support/scratch.h"

namespace halyard::host {
namespace {

using test::Scratch;

/// Keeps what it sees, and does something to the source at the first hole.
class Recorder : public ContentWatcher {
 public:
  void begin() override { seen.clear(); }
  void read(const char* bytes, std::size_t count) override { seen.append(bytes, count); }
  void readZeros(std::uint64_t count) override {
    seen.append(count, '\0');
    if (atHole) atHole();
  }
  void end() override {}

  std::string seen;
  std::function<void()> atHole;
};

struct Files {
  explicit Files(const std::string& folder)
      : from(::open((folder + "/from").c_str(), O_RDONLY)),
        to(::open((folder + "/to").c_str(), O_RDWR | O_CREAT | O_EXCL, 0600)) {
    EXPECT_EQ(::fstat(from.get(), &status), 0);
  }
  Descriptor from;
  Descriptor to;
  struct stat status = {};
};

TEST(FileDataCopier, ShowsWhatItCopiedOfAFileThatShrinksInAHole) {
  Scratch scratch;
  constexpr off_t kHole = 1 << 20;
  scratch.write("from");
  ASSERT_EQ(::truncate((scratch / "from").c_str(), kHole), 0);
  {
    const Descriptor file(::open((scratch / "from").c_str(), O_WRONLY));
    ASSERT_EQ(::pwrite(file.get(), "data", 4, kHole), 4);
  }
  const Files files(scratch / "");
  Recorder recorder;
  recorder.atHole = [&] { ASSERT_EQ(::truncate((scratch / "from").c_str(), 0), 0); };
  FileDataCopier copier;
  copier.watch(&recorder);
  ASSERT_EQ(copier.copy(files.from.get(), files.to.get(), files.status, files.status.st_dev), 0);
  EXPECT_TRUE(Scratch::contents(scratch / "to") == recorder.seen);
}

TEST(FileDataCopier, AFileThatEndsEarlyIsNotTheSameAsALongerOne) {
  Scratch scratch;
  constexpr off_t kHole = 1 << 20;
  for (const char* name : {"from", "to"}) {
    scratch.write(name);
    ASSERT_EQ(::truncate((scratch / name).c_str(), kHole), 0);
    const Descriptor file(::open((scratch / name).c_str(), O_WRONLY));
    ASSERT_EQ(::pwrite(file.get(), "data", 4, kHole), 4);
  }
  const Descriptor from(::open((scratch / "from").c_str(), O_RDONLY));
  const Descriptor to(::open((scratch / "to").c_str(), O_RDONLY));
  struct stat status = {};
  ASSERT_EQ(::fstat(from.get(), &status), 0);
  FileDataCopier copier;
  EXPECT_EQ(copier.compare(from.get(), to.get(), status), 0);
  Recorder recorder;
  recorder.atHole = [&] { ASSERT_EQ(::truncate((scratch / "from").c_str(), kHole), 0); };
  copier.watch(&recorder);
  EXPECT_EQ(copier.compare(from.get(), to.get(), status), ENOENT);
}

TEST(FileDataCopier, ShowsWhatItSharedOfAFileThatGrew) {
  Scratch scratch;
  const test::MountedVolume volume(scratch, "btrfs", 320);
  if (!volume.reason().empty()) GTEST_SKIP() << volume.reason();
  scratch.write("btrfs/from", std::string(100000, 'a'));
  const Files files(volume.path());
  scratch.write("btrfs/from", std::string(200000, 'b'));
  Recorder recorder;
  FileDataCopier copier;
  copier.watch(&recorder);
  ASSERT_EQ(copier.copy(files.from.get(), files.to.get(), files.status, files.status.st_dev), 0);
  EXPECT_TRUE(Scratch::contents(scratch / "btrfs/to") == recorder.seen);
}

}  // namespace
}  // namespace halyard::host
