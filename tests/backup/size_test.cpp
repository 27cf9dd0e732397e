// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "backup/size.h"

#include <gmock/gmock.h>

#include "frontend/run/run_state.h"
#include "support/operation_in_root.h"

namespace halyard {
namespace {

using test::runOperation;
using testing::ElementsAre;
using testing::IsEmpty;

std::int64_t sumOf(const std::vector<std::string_view>& pieces) {
  SizeAnswer answer(SizeAnswer::Keep::sum);
  for (const std::string_view piece : pieces) answer.take(piece);
  answer.finish();
  return answer.sum();
}

TEST(SizeAnswerReading, AnyPiecesGiveTheSameSum) {
  const std::string text =
      "note\ntotal := 1048576\n total := 7\ntotal := -24 x\nTotal := 9\n"
      "total := 99999999999\ntotal :=5\n\ntotal := 3";
  const std::int64_t whole = 1048576 - 24 + 2147483647LL + 3;
  EXPECT_EQ(sumOf({text}), whole);
  for (std::size_t length = 1; length < text.size(); ++length) {
    std::vector<std::string_view> pieces;
    for (std::size_t at = 0; at < text.size(); at += length)
      pieces.push_back(std::string_view(text).substr(at, length));
    EXPECT_EQ(sumOf(pieces), whole) << length;
  }
}

TEST(SizeAnswerReading, EmptyPiecesChangeNothing) {
  EXPECT_EQ(sumOf({"", "total := 1", "", "2", "", "\n", ""}), 12);
}

TEST(SizeAnswerReading, NothingIsZero) { EXPECT_EQ(sumOf({}), 0); }

TEST(SizeAnswerReading, ValuesAreKeptOnlyWhenAsked) {
  SizeAnswer every(SizeAnswer::Keep::everyValue);
  every.take("total := 5\nx\ntotal := -1\n");
  every.finish();
  EXPECT_THAT(every.values(), ElementsAre(5, -1));
  SizeAnswer sum(SizeAnswer::Keep::sum);
  sum.take("total := 5\n");
  sum.finish();
  EXPECT_THAT(sum.values(), IsEmpty());
}

TEST(SizeAnswerReading, SumsGoBeyond32Bits) {
  EXPECT_EQ(sumOf({"total := 2147483647\ntotal := 2147483647\n"}), 4294967294);
  EXPECT_EQ(sumOf({"total := -9999999999\ntotal := -9999999999\n"}), -4294967296);
}

class VolumeSize : public test::PrivateRootTest {
 protected:
  void writeDiskUsage(const std::string& output) {
    root.remove("/bin/df");
    root.writePlugin("/bin/df", "printf '" + output + "'");
  }
};

TEST_F(VolumeSize, TheDestinationIsMeasuredAtItsPath) {
  writeDiskUsage("Filesystem 1K Used\\n/dev/a 1 2 /\\n/dev/b 4711 5 /Volumes/Backup\\n");
  const auto result = runOperation(root, [] {
    runState().debug = true;
    runState().functionLog = true;
    get_Destination_Volume_Size();
    std::printf("measured <%s>\n", sizeMeasurements().measuredSize.c_str());
    return 0;
  });
  const std::string dashes = std::string(55, '-') + "+\n";
  EXPECT_EQ(result.out, "Start get_Destination_Volume_Size" + dashes + "Start get_Helmsman_Prefs" +
                            dashes + "End   get_Helmsman_Prefs" + dashes +
                            "SPARSE_IMAGE_SIZE := 4711\n" + "End   get_Destination_Volume_Size" +
                            dashes + "measured <4711>\n");
  EXPECT_THAT(result.err,
              testing::HasSubstr("/bin/df -k /Volumes/Backup | /usr/bin/grep /Volumes/Backup | "
                                 "/usr/bin/awk '{ print $2 }'"));
  EXPECT_THAT(root.calls(), ElementsAre("/bin/df|-k|/Volumes/Backup"));
}

TEST_F(VolumeSize, AnAbsentDestinationMeasuresNull) {
  root.writeEnginePreferences(1, "/Volumes/Gone");
  const auto result = runOperation(root, [] {
    runState().debug = true;
    get_Destination_Volume_Size();
    return 0;
  });
  EXPECT_EQ(result.out, "SPARSE_IMAGE_SIZE := \n");
  EXPECT_THAT(result.err, testing::HasSubstr("/bin/df -k (null) | /usr/bin/grep (null)"));
}

TEST_F(VolumeSize, OnlyLineFeedsAtTheEndsAreTrimmed) {
  writeDiskUsage("x 1 /\\nx 2 /\\n");
  const auto result = runOperation(root, [] {
    get_Boot_Volume_Size();
    std::printf("<%s>", sizeMeasurements().measuredSize.c_str());
    return 0;
  });
  EXPECT_EQ(result.out, "<1\n2>");
}

TEST_F(VolumeSize, TheFirstNumberIsMultipliedIntoBytes) {
  writeDiskUsage("x 3 /\\nx 2 /\\n");
  const auto result = runOperation(root, [] {
    get_Images_Volume_Size();
    std::printf("%ld", static_cast<long>(sizeMeasurements().imagesVolumeSize));
    return 0;
  });
  EXPECT_EQ(result.out, "3072");
}

TEST_F(VolumeSize, TheTotalIsReturnedInBytes) {
  root.writeScript("/opt/a", "echo 'total := 1048576'");
  root.writeScript("/opt/b", "echo 'total := 2048'; echo 'total := 1024'");
  root.writeDescriptor("10-a.plist", test::descriptorOf("siteHost", "/opt/a"));
  root.writeDescriptor("20-b.plist", test::descriptorOf("postHost", "/opt/b"));
  root.writePreferences({{"siteHost", 1}, {"postHost", 1}});
  const auto result = runOperation(root, [] {
    runState().preferences.services[6] = PropertyValue(1);
    runState().preferences.services[4] = PropertyValue(1);
    std::printf("%ld\n", static_cast<long>(SizeRequired(true)));
    std::printf("%ld\n", static_cast<long>(SizeRequired(false)));
    return static_cast<int>(haveRoomForBackup(CommandLine()));
  });
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "total := 1027\n1051648\n1051648\n");
}

}  // namespace
}  // namespace halyard
