// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Copying what changed of a file whose blocks can be shared.
#include "host/tree/file_data_copy.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/files/descriptor.h"
#include "support/mounted_volume.h"
#include "support/scratch.h"

namespace halyard::host {
namespace {

using test::MountedVolume;
using test::Scratch;

class CopyChanges : public testing::Test {
 protected:
  void SetUp() override {
    if (!volume_.reason().empty()) GTEST_SKIP() << volume_.reason();
  }
  /// What the copy of `now` holds where an earlier copy holds `earlier`.
  std::string copy(const std::string& now, const std::string& earlier, int flags = O_RDWR) {
    const std::string from = scratch_.write("now", now);
    const std::string base = scratch_.write("btrfs/earlier", earlier);
    (void)::unlink(target().c_str());
    const Descriptor source(::open(from.c_str(), O_RDONLY));
    const Descriptor there(::open(base.c_str(), O_RDONLY));
    const Descriptor to(::open(target().c_str(), flags | O_CREAT | O_EXCL, 0600));
    struct stat status {};
    EXPECT_EQ(::fstat(source.get(), &status), 0);
    FileDataCopier data;
    EXPECT_EQ(data.copyChanges(source.get(), to.get(), there.get(), status), 0);
    return Scratch::contents(target());
  }
  std::string target() const { return volume_.path() + "/copy"; }

  Scratch scratch_;
  MountedVolume volume_{scratch_, "btrfs", 320};
};

std::string blocks(const std::string& letters) {
  std::string bytes;
  for (const char letter : letters) bytes.append(4096, letter);
  return bytes;
}

TEST_F(CopyChanges, TakesWhatChangedGrewAndShrank) {
  EXPECT_EQ(copy(blocks("aXc"), blocks("abc")), blocks("aXc"));
  EXPECT_EQ(copy(blocks("abcd") + "end", blocks("abc")), blocks("abcd") + "end");
  EXPECT_EQ(copy(blocks("a") + "end", blocks("abc")), blocks("a") + "end");
  EXPECT_EQ(copy("", blocks("abc")), "");
  EXPECT_EQ(copy(blocks("abc"), "short"), blocks("abc"));
}

TEST_F(CopyChanges, KeepsHoles) {
  const std::string from = scratch_.write("sparse", blocks("a"));
  ASSERT_EQ(::truncate(from.c_str(), 1 << 20), 0);
  const std::string whole = Scratch::contents(from);
  EXPECT_EQ(whole.size(), std::size_t{1} << 20);
  const std::string base = volume_.path() + "/base";
  {
    const Descriptor made(::open(base.c_str(), O_RDWR | O_CREAT, 0600));
    const std::string bytes(1 << 20, 'b');
    ASSERT_EQ(::write(made.get(), bytes.data(), bytes.size()), ssize_t{1 << 20});
  }
  const Descriptor source(::open(from.c_str(), O_RDONLY));
  const Descriptor there(::open(base.c_str(), O_RDONLY));
  const Descriptor to(::open(target().c_str(), O_RDWR | O_CREAT | O_EXCL, 0600));
  struct stat status {};
  ASSERT_EQ(::fstat(source.get(), &status), 0);
  FileDataCopier data;
  ASSERT_EQ(data.copyChanges(source.get(), to.get(), there.get(), status), 0);
  EXPECT_EQ(Scratch::contents(target()), whole);
  ASSERT_EQ(::fsync(to.get()), 0);
  ASSERT_EQ(::fstat(to.get(), &status), 0);
  EXPECT_LT(status.st_blocks * 512, 64 << 10);
}

TEST_F(CopyChanges, WritesWhatCannotBeReadThere) {
  EXPECT_EQ(copy(blocks("aXc"), blocks("abc"), O_WRONLY), blocks("aXc"));
}

}  // namespace
}  // namespace halyard::host
