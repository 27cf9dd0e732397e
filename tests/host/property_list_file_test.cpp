// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/property_list.h"
#include "host/files/property_file.h"
#include "support/scratch.h"

namespace halyard::host {
namespace {

constexpr char kList[] = "<plist><dict><key>a</key><integer>1</integer></dict></plist>";

TEST(ReadPropertyList, ReadsARegularFileAndALinkToOne) {
  const test::Scratch scratch;
  const std::string path = scratch.write("list.plist", kList);
  ASSERT_EQ(symlink("list.plist", (scratch / "link").c_str()), 0);
  EXPECT_EQ(readPropertyList(path), parsePropertyList(kList));
  EXPECT_EQ(readDictionary(scratch / "link")->find("a")->asInteger(), 1);
}

TEST(ReadPropertyList, RefusesWhatIsNoRegularFileWithoutWaiting) {
  const test::Scratch scratch;
  ASSERT_EQ(mkfifo((scratch / "fifo").c_str(), 0600), 0);
  EXPECT_FALSE(readPropertyList(scratch / "fifo"));
  EXPECT_FALSE(readPropertyList(scratch.makeFolder("folder")));
  EXPECT_FALSE(readPropertyList("/dev/zero"));
  EXPECT_FALSE(readPropertyList(scratch / "missing"));
  EXPECT_FALSE(readPropertyList(""));
}

TEST(ReadPropertyList, RefusesAFileBeyondItsLimit) {
  const test::Scratch scratch;
  const std::string path = scratch.write("list.plist", kList);
  EXPECT_TRUE(readPropertyList(path, sizeof kList - 1));
  EXPECT_FALSE(readPropertyList(path, sizeof kList - 2));
  const std::string hollow = scratch.write("hollow.plist", kList);
  ASSERT_EQ(truncate(hollow.c_str(), static_cast<off_t>(kPreferenceLimit) + 1), 0);
  EXPECT_FALSE(readPropertyList(hollow));
}

TEST(ReadPropertyList, RefusesWhatIsNoList) {
  const test::Scratch scratch;
  EXPECT_FALSE(readPropertyList(scratch.write("empty")));
  EXPECT_FALSE(readPropertyList(scratch.write("text", "name = value\n")));
  EXPECT_FALSE(readPropertyList(scratch.write("binary", std::string("bplist00\xD0\x08\0", 11))));
}

TEST(ReadDictionary, TakesARootThatIsADictionaryOnly) {
  const test::Scratch scratch;
  EXPECT_TRUE(readDictionary(scratch.write("dictionary", kList)));
  EXPECT_FALSE(readDictionary(scratch.write("array", "<plist><array/></plist>")));
  EXPECT_FALSE(readDictionary(scratch / "missing"));
}

}  // namespace
}  // namespace halyard::host
