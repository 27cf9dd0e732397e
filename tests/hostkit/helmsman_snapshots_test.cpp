// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// verify of one service, browse and purge.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "helmsman/restore/verify.h"
#include "restore_test.h"

namespace halyard::hostkit {
namespace {

using test::descriptorOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

using HelmsmanVerify = test::RestoreTest;
using HelmsmanBrowse = test::RestoreTest;
using HelmsmanPurge = test::RestoreTest;

// ---- verify

TEST_F(HelmsmanVerify, IsHonestAboutTheCount) {
  root.writePreferences({{"depotHost", 1}});
  auto result = helmsman({"verify"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(root.calls(), ElementsAre(std::string(kPlugin) + "|-cmd|verify|-path|" + metadata() +
                                        "/depotHost|-log|/private/var/log/halyard/depotHost.log"));
  writePlugin(":", "12");
  result = helmsman({"verify", "depot"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("depotHost  12"));
  EXPECT_EQ(helmsmanJson({"verify", "--json"})["services"][0]["mismatches"], 12);
}

TEST_F(HelmsmanVerify, TellsNinetyNineMismatchesFromNoAnswer) {
  writePlugin(":", "99");
  EXPECT_THAT(helmsman({"verify"}).out, HasSubstr("depotHost  99"));
  root.writePlugin(kPlugin, "exit 1");
  const auto result = helmsman({"verify"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("depotHost  no answer"));
  EXPECT_EQ(helmsmanJson({"verify", "--json"})["services"][0]["mismatches"], nullptr);
}

TEST_F(HelmsmanVerify, RefusesWhatTheSnapshotDoesNotHold) {
  const auto result = helmsman({"verify", "postHost"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("postHost was not verified: no snapshot holds it"));
  EXPECT_THAT(helmsman({"verify", "postHost", "--from", "2026-11-20"}).err,
              HasSubstr("the snapshot 2026-11-20-020000 does not hold postHost"));
}

TEST(Mismatches, AreTakenFromTheDiagnosticOutput) {
  EXPECT_EQ(mismatchesIn("Number of failures to match := 4\nbinRet := 4\n"), 4);
  EXPECT_EQ(mismatchesIn("Number of failures to match := 4\nNumber of failures to match := "
                         "0\nbinRet := 0\n"),
            0);
  EXPECT_EQ(mismatchesIn("binRet := 99\n"), std::nullopt);
  EXPECT_EQ(mismatchesIn(""), std::nullopt);
}

// ---- browse

TEST_F(HelmsmanBrowse, PrintsWhatTheServiceAnswers) {
  const auto result = helmsman({"browse", "depot"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("browsing " + metadata() + "/depotHost\n"));
}

TEST_F(HelmsmanBrowse, WarningsAreMessagesAndAnEmptyAnswerIsAFailure) {
  root.writePlugin(kPlugin, "exit 0");
  const auto result = helmsman({"browse"});
  EXPECT_THAT(result.err, HasSubstr("helmsman: warning: WARNING:2: Service depotHost did not "
                                    "return any data when browsing."));
  EXPECT_THAT(result.out, Not(HasSubstr("WARNING")));
  EXPECT_EQ(helmsman({"browse", "depot"}).status, 1);
}

TEST_F(HelmsmanBrowse, RefusesAServiceThatIsNotThere) {
  EXPECT_THAT(helmsman({"browse", "postHost"}).err, HasSubstr("does not hold postHost"));
  EXPECT_EQ(helmsman({"browse", "none"}).status, 1);
  EXPECT_THAT(root.calls(), IsEmpty());
}

// ---- purge

TEST_F(HelmsmanPurge, RemovesASnapshotAndSaysSo) {
  const std::string older = std::string(kHostFolder) + "/2026-11-19-020000";
  root.writeFile(older + "/System/.Halyards/.halyardSignature", "x");
  const auto result = helmsman({"purge", "2026-11-19", "--yes"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "helmsman: removed " + older + "\n");
  EXPECT_FALSE(root.exists(older));
}

TEST_F(HelmsmanPurge, KeepsTheLatestUnlessToldOtherwise) {
  install("snapwheel", root);
  const std::string latest = std::string(kHostFolder) + "/2026-11-20-020000";
  for (const std::string& word : {std::string("2026-11-20"), std::string("latest"), latest}) {
    EXPECT_EQ(helmsman({"purge", word, "--yes"}).status, 1) << word;
  }
  EXPECT_TRUE(root.exists(latest));
  EXPECT_EQ(helmsman({"purge", "2026-11-20", "--yes", "--latest"}).status, 0);
  EXPECT_FALSE(root.exists(latest));
}

TEST_F(HelmsmanPurge, MovesLatestToTheNewestThatStays) {
  install("snapwheel", root);
  const std::string folder = std::string(kHostFolder) + "/";
  root.writeFile(folder + "2026-11-19-020000/System/.Halyards/.halyardSignature", "x");
  EXPECT_EQ(helmsman({"purge", "latest", "--yes", "--latest"}).status, 0);
  EXPECT_EQ(std::filesystem::read_symlink(root.path(folder + "Latest")), "2026-11-19-020000");
  EXPECT_EQ(helmsman({"purge", "latest", "--yes", "--latest"}).status, 0);
  EXPECT_FALSE(std::filesystem::is_symlink(root.path(folder + "Latest")));
}

TEST_F(HelmsmanPurge, SaysSoWhenLatestCannotBeMoved) {
  root.writeScript("/usr/sbin/snapwheel", "echo 'snapwheel: busy' >&2; exit 3");
  const auto result = helmsman({"purge", "latest", "--yes", "--latest"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("Latest leads to no snapshot now (see: /usr/sbin/snapwheel "
                                    "latest): snapwheel: busy"));
}

TEST_F(HelmsmanPurge, RefusesWhatHalyardWouldSilentlyLeave) {
  const std::string folder(kHostFolder);
  root.makeFolder(folder + "/2026-11-18-020000/System");
  root.writeFile(folder + "/2026-11-17-020000.inProgress/System/.Halyards/.halyardSignature", "x");
  EXPECT_THAT(helmsman({"purge", "2026-11-18", "--yes"}).err,
              HasSubstr("carries no backup of the services"));
  EXPECT_THAT(helmsman({"purge", "2026-11-17", "--yes"}).err, HasSubstr("is not complete"));
  EXPECT_EQ(helmsman({"purge", "2030", "--yes"}).status, 1);
  EXPECT_TRUE(root.exists(folder + "/2026-11-18-020000"));
  EXPECT_TRUE(root.exists(folder + "/2026-11-17-020000.inProgress"));
}

TEST_F(HelmsmanPurge, LeavesAPinnedSnapshotAlone) {
  const std::string snapshot = "/Volumes/Backup/Archives.snapdb/files1/2026-11-20-020000";
  root.writeFile(snapshot + "/.snapwheel/pin", R"({"note": "before the upgrade"})");
  const auto result = helmsman({"purge", "2026-11-20", "--yes", "--latest"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("is pinned (before the upgrade) (see: helmsman unpin)"));
  EXPECT_TRUE(root.exists(snapshot));
  EXPECT_THAT(helmsman({"snapshots"}).out, HasSubstr("pinned (before the upgrade)"));
}

TEST_F(HelmsmanPurge, PinsThroughTheEngine) {
  root.writeScript("/usr/sbin/snapwheel", "echo \"$*\"; echo 'snapwheel: busy' >&2; exit 3");
  const auto pinned = helmsman({"pin", "2026-11-20", "--note", "kept"});
  EXPECT_EQ(pinned.out, "pin 2026-11-20-020000 --note=kept\n");
  EXPECT_EQ(pinned.err, "snapwheel: busy\n");
  EXPECT_EQ(pinned.status, 3);
  EXPECT_THAT(helmsman({"unpin", "2026-11-20", "--wait", "9"}).out,
              testing::MatchesRegex("unpin --wait [0-9]+ 2026-11-20-020000\n"));
  EXPECT_EQ(helmsman({"pin", "2025"}).status, 1);
}

TEST_F(HelmsmanPurge, ComparesAServiceThroughTheEngine) {
  root.writeScript("/usr/sbin/snapwheel", "echo \"$*\"");
  const std::string name = "2026-11-20-020000";
  const auto now = helmsman({"diff", "depot", "latest"});
  EXPECT_EQ(now.out, "diff " + name + " --now /srv/depot /etc/depot.conf\n") << now.err;
  EXPECT_THAT(now.err, HasSubstr("only these were compared: /srv/depot, /etc/depot.conf;"));
  EXPECT_THAT(now.err, HasSubstr("helmsman verify depotHost --from " + name));
  const auto two = helmsman({"diff", "depot", "2026-11-20", "latest"});
  EXPECT_EQ(two.out,
            "diff " + name + " " + name + " /srv/depot /etc/depot.conf /.Halyards/depotHost\n");
  EXPECT_EQ(two.err, "") << "all that the backup holds";
  EXPECT_EQ(helmsman({"diff", "depot", "2025"}).status, 1);
  EXPECT_EQ(helmsman({"find", "*.conf"}).out, "find -- *.conf\n");
}

TEST_F(HelmsmanPurge, PassesOnWhatTheEngineSaysAsJson) {
  root.writeScript(
      "/usr/sbin/snapwheel",
      "echo '{\"format\":1,\"words\":\"'\"$*\"'\"}'; echo 'snapwheel: a gap' >&2; exit 4");
  const auto found = refused("helmsman", {"find", "--json", "-a*"});
  EXPECT_EQ(found.status, 2) << "a pattern that begins so goes after --";
  const auto after = helmsman({"find", "--json", "--", "-a*"});
  EXPECT_EQ(nlohmann::json::parse(after.out, nullptr, false)["words"], "find --json -- -a*");
  EXPECT_EQ(after.err, "snapwheel: a gap\n");
  EXPECT_EQ(after.status, 4);
  EXPECT_THAT(helmsmanJson({"diff", "depot", "latest", "--json"})["words"],
              StartsWith("diff --json 2026-11-20-020000 --now "));
}

TEST_F(HelmsmanPurge, AnEngineWithoutAnAnswerInJsonIsAFailure) {
  root.writeScript("/usr/sbin/snapwheel", "echo 'no JSON'; echo 'snapwheel: odd' >&2; exit 0");
  const auto result = helmsman({"find", "x", "--json"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("snapwheel: odd\n"));
  EXPECT_EQ(nlohmann::json::parse(result.out, nullptr, false)["error"]["message"],
            "the engine gave no answer");
  // The engine's own refusal is the answer, and its status stays.
  root.writeScript("/usr/sbin/snapwheel",
                   "echo '{\"error\":{\"message\":\"busy\",\"status\":3},\"format\":1}'; exit 3");
  const auto busy = helmsman({"find", "x", "--json"});
  EXPECT_EQ(busy.status, 3);
  EXPECT_EQ(nlohmann::json::parse(busy.out, nullptr, false)["error"]["message"], "busy");
  EXPECT_EQ(busy.out.find('\n'), busy.out.size() - 1) << "one line";
}

TEST_F(HelmsmanPurge, AsksFirst) {
  const std::string older = std::string(kHostFolder) + "/2026-11-19-020000";
  root.writeFile(older + "/System/.Halyards/.halyardSignature", "x");
  EXPECT_EQ(helmsman({"purge", "2026-11-19"}).status, 1);
  EXPECT_EQ(helmsmanAnswered({"purge", "2026-11-19"}, "n\n").status, 1);
  EXPECT_TRUE(root.exists(older));
  EXPECT_EQ(helmsmanAnswered({"purge", "2026-11-19"}, "y\n").status, 0);
  EXPECT_FALSE(root.exists(older));
}

TEST_F(HelmsmanPurge, TellsWhenTheFolderIsStillThere) {
  // Outside the repository it looks like a snapshot, and the engine refuses it.
  root.writeFile("/copy/System/.Halyards/.halyardSignature", "x");
  const auto result = helmsman({"purge", "/copy", "--yes"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("copy was not removed: That is not a snapshot."));
}

}  // namespace
}  // namespace halyard::hostkit
