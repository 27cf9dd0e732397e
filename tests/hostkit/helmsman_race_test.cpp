// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// helmsman works for root in folders of an account that swaps them for links.
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>

#include "common/messages.h"
#include "helmsman/report/metrics.h"
#include "helmsman/restore/file_restore.h"
#include "helmsman/restore/tidy.h"
#include "helmsman/restore/undo.h"
#include "helmsman/run/restore_record.h"
#include "host_kit_root.h"
#include "race.h"
#include "support/operation_in_root.h"

namespace halyard::hostkit {
namespace {

using test::Race;

class HelmsmanRace : public test::HostKitTest {
 protected:
  void SetUp() override {
    HostKitTest::SetUp();
    if (IsSkipped()) return;
    if (::geteuid() != 0) GTEST_SKIP() << "becoming another account needs root";
    root.writePreferences({{"depotHost", 1}});
    race_ = std::make_unique<Race>(root.path("/"), "/outside");
    race_->fill(home(), "the user's");
  }
  std::string home() const { return root.path("/home"); }

  /// What a restore keeps that set aside a file of each of the user's folders.
  static bool keepRecord() {
    RestoreRecord record;
    record.service = "depotHost";
    record.time = 1;
    record.finished = true;
    for (const std::string& name : Race::folders()) {
      record.items.push_back({"/home/" + name + "/file", true, {}});
    }
    return keepRestoreRecord(record);
  }
  /// Each time on the same record.
  void runOperation(const std::function<void()>& operation) const {
    const auto result = test::runOperation(root, [&] {
      setQuiet(true);
      if (!keepRecord()) return 1;
      operation();
      return 0;
    });
    ASSERT_EQ(result.status, 0) << result.err;
  }
  /// The folders are made anew before each run when that changes them for good.
  void race(const std::function<void()>& operation, bool refills = false,
            std::vector<std::string> items = Race::folders(), unsigned cost = 1) {
    Race::Run run;
    run.prepare = [&] {
      if (refills) race_->fill(home(), "the user's");
      return home();
    };
    run.act = [&] { runOperation(operation); };
    run.items = std::move(items);
    run.cost = cost;
    race_->run(run);
  }

  std::unique_ptr<Race> race_;
};

TEST_F(HelmsmanRace, AnUndoMovesNothingOutside) {
  race([] { (void)undo({"depotHost", true}); });
}

TEST_F(HelmsmanRace, ATidyRemovesNothingOutside) {
  race(
      [] {
        TidyArguments arguments;
        arguments.yes = true;
        (void)tidy(arguments);
      },
      true);
}

TEST_F(HelmsmanRace, AFileRestoreTouchesNothingOutside) {
  install("snapwheel", root);
  const std::string snapshot = "/Volumes/Backup/Archives.snapdb/files1/2026-11-20-020000/System";
  root.writeFile(snapshot + "/.Halyards/.halyardSignature", "x");
  std::vector<std::string> names = Race::folders();
  names.resize(8);
  for (const std::string& name : names) {
    root.writeFile(snapshot + "/home/" + name + "/deep/file", "old");
  }
  race(
      [&names] {
        for (const std::string& name : names) {
          FileRestoreArguments arguments;
          arguments.path = "/home/" + name + "/deep";
          arguments.inPlace = arguments.yes = true;
          (void)restoreFile(arguments);
          arguments.inPlace = false;
          (void)restoreFile(arguments);
          arguments.path += "/file";
          arguments.to = "/home/" + name;
          (void)restoreFile(arguments);
        }
      },
      true, names, 8);  // Each attempt is three whole restores.
}

TEST_F(HelmsmanRace, MetricsAreWrittenNowhereElse) {
  race([] {
    for (const std::string& name : Race::folders()) {
      MetricsArguments arguments;
      arguments.write = true;
      arguments.folder = "/home/" + name + "/deep";
      (void)metrics(arguments);
    }
  });
}

}  // namespace
}  // namespace halyard::hostkit
