// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "base/property_list.h"
#include "drivectl/report.h"
#include "host/volumes/volume.h"
#include "host_kit_root.h"

namespace halyard::hostkit {
namespace {

using DriveCtl = test::HostKitTest;

std::string uuidIn(const std::string& text) {
  const auto dictionary = parseDictionary(text);
  return dictionary ? dictionary->text("VolumeUUID").value_or("") : "";
}

TEST_F(DriveCtl, InfoPlistPrintsTheDictionaryOfTheVolume) {
  const auto result = drivectl({"info", "-plist", "/"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  const auto dictionary = parseDictionary(result.out);
  ASSERT_TRUE(dictionary);
  EXPECT_EQ(dictionary->text("VolumeUUID").value_or("").size(), 36U);
  EXPECT_EQ(dictionary->text("MountPoint").value_or(""), "/");
  ASSERT_NE(dictionary->find("TotalSize"), nullptr);
  EXPECT_GT(dictionary->find("TotalSize")->asInteger().value_or(0), 0);
  ASSERT_NE(dictionary->find("FreeSpace"), nullptr);
  ASSERT_NE(dictionary->find("ReadOnly"), nullptr);
  EXPECT_EQ(dictionary->find("ReadOnly")->asBoolean(), false);
}

TEST_F(DriveCtl, TheIdentifierIsTheSameAtEveryRun) {
  const std::string first = uuidIn(drivectl({"info", "-plist", "/"}).out);
  root.writeFile("/etc/something-new", "changes the root's contents");
  EXPECT_EQ(uuidIn(drivectl({"info", "-plist", "/"}).out), first);
  EXPECT_EQ(uuidIn(drivectl({"info", "-plist", "/etc/something-new"}).out), first);
}

TEST_F(DriveCtl, TheIdentifierDoesNotDependOnTheFormOfTheAnswer) {
  const std::string uuid = uuidIn(drivectl({"info", "-plist", "/"}).out);
  EXPECT_EQ(uuidIn(drivectl({"info", "/", "--plist"}).out), uuid);
  const auto json = nlohmann::json::parse(drivectl({"info", "--json", "/"}).out);
  EXPECT_EQ(json["VolumeUUID"], uuid);
  EXPECT_NE(drivectl({"info", "/"}).out.find(uuid), std::string::npos);
}

TEST_F(DriveCtl, TwoRootsOnOneDiskDiffer) {
  const test::PrivateRoot other;
  install("drivectl", other);
  const std::string here = uuidIn(drivectl({"info", "-plist", "/"}).out);
  const std::string there =
      uuidIn(other.runProgram("/usr/sbin/drivectl", {"info", "-plist", "/"}).out);
  EXPECT_EQ(there.size(), 36U);
  EXPECT_NE(here, there);
}

TEST_F(DriveCtl, AMissingPathIsToldOnStandardErrorAlone) {
  const auto result = drivectl({"info", "-plist", "/nowhere"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "drivectl: /nowhere: No such file or directory\n");
}

TEST_F(DriveCtl, ACommandLineWithoutSenseHasAStatusOfItsOwn) {
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{}, {"info"}, {"info", "--no-such", "/"}, {"format", "/"}}) {
    const auto result = refused("drivectl", words);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err, "");
  }
}

TEST_F(DriveCtl, ListNamesTheRootVolume) {
  const auto result = drivectl({"list", "--json"});
  EXPECT_EQ(result.status, 0);
  const auto volumes = nlohmann::json::parse(result.out)["volumes"];
  ASSERT_FALSE(volumes.empty());
  EXPECT_EQ(volumes[0]["MountPoint"], "/");
  EXPECT_EQ(volumes[0]["VolumeUUID"], uuidIn(drivectl({"info", "-plist", "/"}).out));
  EXPECT_EQ(drivectl({"list"}).out.rfind("MOUNT POINT", 0), 0U);
}

TEST_F(DriveCtl, HelpAndVersionSucceed) {
  EXPECT_EQ(refused("drivectl", {"--help"}).status, 0);
  EXPECT_EQ(refused("drivectl", {"info", "--help"}).status, 0);
  EXPECT_EQ(refused("drivectl", {"--version"}).out, "drivectl 1.1.0\n");
}

TEST_F(DriveCtl, AnswerThatCannotBeWrittenIsAFailure) {
  test::RunOptions options;
  options.stdoutFile = "/dev/full";
  const auto result = root.runProgram("/usr/sbin/drivectl", {"info", "-plist", "/"}, {}, options);
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("standard output could not be written"), std::string::npos);
}

TEST(VolumeDictionary, LeavesOutWhatIsNotKnown) {
  host::Volume volume;
  volume.uuid = "88a69d51-9f56-46ff-8386-2d10a01ec9d6";
  volume.mountPoint = "/";
  const PropertyDictionary dictionary = volumeDictionary(volume);
  EXPECT_EQ(dictionary.find("DeviceNode"), nullptr);
  EXPECT_EQ(dictionary.find("FilesystemType"), nullptr);
  EXPECT_EQ(dictionary.find("VolumeName"), nullptr);
  EXPECT_EQ(dictionary.text("VolumeUUIDSource").value_or(""), "filesystem");
}

}  // namespace
}  // namespace halyard::hostkit
