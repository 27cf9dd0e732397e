// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The engine works for root on folders of an account that swaps them for links.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "base/text.h"
#include "common/messages.h"
#include "host/tree/remove_tree.h"
#include "race.h"
#include "snapwheel/check_repository.h"
#include "snapwheel/failure.h"
#include "snapwheel/remove_snapshots.h"
#include "snapwheel/restore_snapshot.h"
#include "snapwheel/take_snapshot.h"
#include "support/scratch.h"

namespace halyard::snapwheel {
namespace {

using test::Race;

class EngineRace : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "becoming another account needs root";
    ASSERT_EQ(::chmod(std::string(scratch_ / "").c_str(), 0755), 0);
    hostkit::setQuiet(true);
    scratch_.makeFolder("destination");
    scratch_.write("source/etc/passwd", "ada:x:1815:1816::/:/bin/sh\n");
    scratch_.write("source/etc/group", "engine:x:1816:\n");
    race_ = std::make_unique<Race>(scratch_ / "", scratch_ / "outside");
    race_->fill(sourceHome(), "the user's");
  }
  void TearDown() override { hostkit::setQuiet(false); }

  std::string sourceHome() const { return scratch_ / "source/home"; }
  std::string take() const {
    SnapshotRequest request;
    request.source = scratch_ / "source";
    request.machineLock = scratch_ / "lock";
    return takeSnapshot(repository_, request).name;
  }
  /// The copy of the user's folder: the user's own there, too.
  std::string homeIn(const std::string& name) const {
    return repository_.path(name) + "/System/home";
  }
  void restore(const std::string& name, const std::string& target, bool mapOwners) const {
    RestoreRequest request;
    request.snapshotPath = repository_.path(name);
    request.target = target;
    request.force = true;
    request.mapOwners = mapOwners;
    try {
      (void)restoreSnapshot(request);
    } catch (const Failure&) {  // What was swapped cannot be restored: no matter here.
    }
  }
  void restoreIntoAnothersFolders(bool mapOwners) {
    const std::string name = take();
    std::string home = scratch_.makeFolder("target") + "/home";
    race_->run({[&] {
                  race_->fill(home, "changed");
                  return home;
                },
                [&] { restore(name, scratch_ / "target", mapOwners); }});
  }

  test::Scratch scratch_;
  Repository repository_{scratch_ / "destination", "files1"};
  std::unique_ptr<Race> race_;
};

TEST_F(EngineRace, ASnapshotHoldsNothingFromOutside) {
  std::string last = take();
  std::string before;
  race_->run({[&] { return sourceHome(); },
              [&] {
                before = last;
                last = take();
              },
              [&] {
                EXPECT_FALSE(Race::holdsOutside(repository_.path(last)));
                removeSnapshots(repository_, {before});
              }});
}

TEST_F(EngineRace, ARestoreWritesNothingOutside) { restoreIntoAnothersFolders(false); }

TEST_F(EngineRace, ARestoreThatMapsOwnersWritesNothingOutside) { restoreIntoAnothersFolders(true); }

TEST_F(EngineRace, ARestoreFollowsNoTargetOfAnother) {
  const std::string name = take();
  std::string home = scratch_.makeFolder("home");
  Race::Run run;
  run.prepare = [&] {
    race_->fill(home, "changed");
    return home;
  };
  run.act = [&] {
    for (const std::string& folder : run.items) {
      restore(name, appendPath(home, folder) + "/deep", false);
    }
  };
  run.items = Race::folders();
  run.items.resize(8);
  run.cost = 8;  // Each attempt is a whole restore.
  race_->run(run);
}

TEST_F(EngineRace, ARestoreReadsNothingOutsideOfTheSnapshot) {
  const std::string name = take();
  const std::string target = scratch_ / "target";
  race_->run({[&] {
                (void)host::removeTree(target);  // There is none at first.
                return homeIn(name);
              },
              [&] { restore(name, target, false); },
              [&] { EXPECT_FALSE(Race::holdsOutside(target)); }});
}

TEST_F(EngineRace, ADeletionRemovesNothingOutside) {
  std::string name;
  race_->run({[&] {
                name = take();
                return homeIn(name);
              },
              [&] {
                try {
                  removeSnapshots(repository_, {name});
                } catch (const Failure&) {  // What stays is removed by the next snapshot.
                }
              },
              [&] { EXPECT_TRUE(repository_.list().snapshots.empty()); }});
}

TEST_F(EngineRace, ACheckReadsNothingOutside) {
  const std::string name = take();
  race_->run({[&] { return homeIn(name); },
              [&] { (void)checkRepository(repository_, CheckDepth::contents); }});
}

TEST_F(EngineRace, ACheckOfASnapshotWithoutDigestsReadsNothingOutside) {
  const std::string name = take();
  ASSERT_EQ(::unlink((repository_.path(name) + "/.snapwheel/index").c_str()), 0);
  race_->run({[&] { return homeIn(name); },
              [&] { (void)checkRepository(repository_, CheckDepth::contents); }});
}

}  // namespace
}  // namespace halyard::snapwheel
