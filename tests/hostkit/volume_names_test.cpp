// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/volume_names.h"

#include <gtest/gtest.h>

namespace halyard::hostkit {
namespace {

struct Pair {
  const char* mountPoint;
  const char* folder;
};

TEST(VolumeNames, AreMadeOfTheMountPointAndLeadBackToIt) {
  for (const Pair& pair :
       {Pair{"/", "System"}, Pair{"/srv", "srv"}, Pair{"/var/lib/mysql", "var-lib-mysql"},
        Pair{"/System", R"(\x53ystem)"}, Pair{"/System/x", "System-x"},
        Pair{"/.hidden", R"(\x2ehidden)"}, Pair{"/a/.b", "a-.b"}, Pair{"/a-b", R"(a\x2db)"},
        Pair{"/a b", R"(a\x20b)"}, Pair{"/a\\x2db", R"(a\x5cx2db)"},
        Pair{"/\xc3\xa4", R"(\xc3\xa4)"}, Pair{"/...", R"(\x2e..)"}}) {
    EXPECT_EQ(volumeFolderName(pair.mountPoint), pair.folder);
    EXPECT_EQ(mountPointOfFolder(pair.folder).value_or("none"), pair.mountPoint) << pair.folder;
  }
}

TEST(VolumeNames, NoOtherTextLeadsToAMountPoint) {
  using namespace std::string_literals;
  for (const std::string& folder :
       {""s,          "."s,        ".."s,      "-"s,       "a--b"s,    "-a"s,          "a-"s,
        "..-etc"s,    "a-..-b"s,   "a-.-b"s,   ".hidden"s, "a/b"s,     "a b"s,         R"(\x2f)"s,
        R"(a\x2fb)"s, R"(\x61)"s,  R"(\x2E)"s, R"(\x)"s,   R"(a\x2)"s, R"(\x2e\x2e)"s, R"(\x2e.)"s,
        R"(\x2e)"s,   R"(a\x00)"s, "a\0b"s,    "a\\"s}) {
    EXPECT_EQ(mountPointOfFolder(folder), std::nullopt) << folder;
  }
}

TEST(VolumeNames, AMountPointIsPlainOrNone) {
  using namespace std::string_view_literals;
  for (const auto path : {"/"sv, "/srv"sv, "/a/..b"sv, "/var/lib"sv}) {
    EXPECT_TRUE(isPlainMountPoint(path)) << path;
  }
  for (const auto path :
       {""sv, "srv"sv, "//"sv, "/srv/"sv, "/a//b"sv, "/a/../b"sv, "/.."sv, "/."sv, "/a\0b"sv}) {
    EXPECT_FALSE(isPlainMountPoint(path)) << path;
  }
}

}  // namespace
}  // namespace halyard::hostkit
