// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Pins as they are kept, and what a disk that was in other hands makes of them.
#include "common/snapshot_pin.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "common/record_file.h"
#include "support/scratch.h"

namespace halyard::hostkit {
namespace {

class PinTest : public testing::Test {
 protected:
  void SetUp() override { scratch_.makeFolder("snapshot/.snapwheel"); }
  void put(const std::string& bytes) const { scratch_.write("snapshot/.snapwheel/pin", bytes); }
  std::string note() const {
    const auto pin = readPin(snapshot());
    return pin ? pin->note : "no pin";
  }
  std::string snapshot() const { return scratch_ / "snapshot"; }
  std::string file() const { return RecordPlace(snapshot()).path("pin"); }

  test::Scratch scratch_;
};

TEST_F(PinTest, IsReadBack) {
  EXPECT_FALSE(readPin(snapshot()));
  ASSERT_TRUE(writePin(snapshot(), {"before the \"upgrade\"", "2026-11-21T05:53:29Z"}));
  const auto pin = readPin(snapshot());
  ASSERT_TRUE(pin);
  EXPECT_EQ(pin->note, "before the \"upgrade\"");
  EXPECT_EQ(pin->time, "2026-11-21T05:53:29Z");
  EXPECT_EQ(pinText(*pin), "pinned (before the \"upgrade\")");
  ASSERT_TRUE(removePin(snapshot()));
  EXPECT_FALSE(readPin(snapshot()));
  EXPECT_TRUE(removePin(snapshot())) << "there is none to remove";
}

TEST_F(PinTest, WhatCannotBeReadIsOne) {
  const std::string unreadable = "its pin cannot be read";
  for (const std::string& bytes :
       {std::string(), std::string("no JSON"), std::string("[]"), std::string("null"),
        std::string(10000, '['), std::string(1 << 20, ' ')}) {
    put(bytes);
    EXPECT_EQ(note(), unreadable) << bytes.substr(0, 10);
  }
  ASSERT_EQ(::unlink(file().c_str()), 0);
  ASSERT_EQ(::mkfifo(file().c_str(), 0600), 0);
  EXPECT_EQ(note(), unreadable);
  ASSERT_EQ(::unlink(file().c_str()), 0);
  ASSERT_EQ(::symlink("/nowhere", file().c_str()), 0);
  EXPECT_EQ(note(), unreadable);
  ASSERT_TRUE(removePin(snapshot()));
  ASSERT_EQ(::mkdir(file().c_str(), 0700), 0);
  EXPECT_EQ(note(), unreadable);
  ASSERT_TRUE(writePin(snapshot(), {"mine", ""})) << "what stands there is replaced";
  EXPECT_EQ(note(), "mine");
}

TEST_F(PinTest, OfAHostileOneOnlyABoundedNoteIsTaken) {
  put(R"({"note": ")" + std::string(5000, 'x') + R"(", "time": 7})");
  const auto pin = readPin(snapshot());
  ASSERT_TRUE(pin);
  EXPECT_EQ(pin->note.size(), kNoteLimit);
  EXPECT_EQ(pin->time, "");
  put(R"({"note": {"a": 1}})");
  EXPECT_EQ(note(), "");
}

TEST_F(PinTest, ARecordFolderThatIsALinkLeadsNowhere) {
  put("{}");
  ASSERT_EQ(::rename((snapshot() + "/.snapwheel").c_str(), (scratch_ / "elsewhere").c_str()), 0);
  ASSERT_EQ(::symlink((scratch_ / "elsewhere").c_str(), (snapshot() + "/.snapwheel").c_str()), 0);
  EXPECT_EQ(note(), "its pin cannot be read");
  EXPECT_FALSE(removePin(snapshot()));
  EXPECT_FALSE(writePin(snapshot(), {"", ""}));
}

TEST_F(PinTest, ASnapshotWithoutRecordsHasNone) {
  ASSERT_EQ(::rmdir((snapshot() + "/.snapwheel").c_str()), 0);
  EXPECT_FALSE(readPin(snapshot()));
}

}  // namespace
}  // namespace halyard::hostkit
