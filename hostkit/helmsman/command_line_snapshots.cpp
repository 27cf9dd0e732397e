// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/command_line_snapshots.h"

#include <CLI/CLI.hpp>
#include <memory>

#include "helmsman/report/metrics.h"
#include "helmsman/restore/verify.h"
#include "helmsman/run/scrub.h"
#include "helmsman/snapshots/browse.h"
#include "helmsman/snapshots/compare.h"
#include "helmsman/snapshots/pin.h"
#include "helmsman/snapshots/purge.h"
#include "helmsman/snapshots/snapshots.h"

namespace halyard::hostkit {

namespace {

/// What the options say; every action holds it.
struct SnapshotWords {
  bool json = false;
  BrowseArguments browse;
  VerifyArguments verify;
  DiffArguments diff;
  FindArguments find;
  ScrubArguments scrub;
  PinArguments pin;
  PurgeArguments purge;
};
using Words = std::shared_ptr<SnapshotWords>;

constexpr char kSnapshotHelp[] = "A name, the beginning of one, or a path";

void addLooks(const AddRootCommand& add, const Words& words) {
  add("snapshots", "List this host's snapshots", [words] {
    return listSnapshots(words->json);
  })->add_flag("--json", words->json, "Print JSON");

  CLI::App* browse = add("browse", "Show what a snapshot holds of a service",
                         [words] { return hostkit::browse(words->browse); });
  browse->add_option("SERVICE", words->browse.service,
                     "A name, a plain word, the beginning of a name, or all");
  addFrom(browse, words->browse.snapshot);
  browse->add_option("--opt", words->browse.option, "Hand TEXT to the service")->type_name("TEXT");

  CLI::App* verify = add("verify", "Compare live services with a snapshot",
                         [words] { return hostkit::verify(words->verify); });
  verify->add_option("SERVICE", words->verify.services,
                     "Names or plain words; none: all that a backup has to hold");
  addFrom(verify, words->verify.snapshot);
  verify->add_flag("--json", words->verify.json, "Print JSON");
}

void addComparisons(const AddRootCommand& add, const Words& words) {
  CLI::App* diff = add("diff", "Tell what of a service differs between snapshots, or from now",
                       [words] { return hostkit::diff(words->diff); });
  diff->add_option("SERVICE", words->diff.service,
                   "A name, a plain word, or the beginning of a name")
      ->required();
  diff->add_option("SNAPSHOT", words->diff.older, kSnapshotHelp)->required();
  diff->add_option("NEWER", words->diff.newer, "Another one; without it what the host has now");
  diff->add_flag("--json", words->diff.json, "Print JSON");

  CLI::App* find =
      add("find", "Find files in all snapshots", [words] { return hostkit::find(words->find); });
  find->add_option("PATTERN", words->find.pattern, "A shell pattern; with a \"/\" of whole paths")
      ->required();
  find->add_flag("--json", words->find.json, "Print JSON");

  CLI::App* scrub =
      add("scrub", "Read a part of the snapshots and compare it with what was put there", [words] {
        const int status = hostkit::scrub(words->scrub);
        (void)writeMetricsWhereWanted();  // It tells on its own what went wrong.
        return status;
      });
  scrub->add_option("--part", words->scrub.part, "This one, not the one whose turn it is")
      ->type_name("N")
      ->check(CLI::Range(1U, kMostScrubParts));
  scrub->add_flag("--json", words->scrub.json, "Print JSON");
}

void addKeeping(const AddRootCommand& add, const Words& words) {
  CLI::App* pin = add("pin", "Keep a snapshot whatever the rules say",
                      [words] { return hostkit::pin(words->pin); });
  pin->add_option("--note", words->pin.note, "What for")->type_name("TEXT");
  CLI::App* unpin = add("unpin", "Let the rules decide again about a snapshot",
                        [words] { return hostkit::unpin(words->pin); });
  for (CLI::App* command : {pin, unpin}) {
    command->add_option("SNAPSHOT", words->pin.snapshot, kSnapshotHelp)->required();
  }

  CLI::App* purge = add("purge", "Remove one snapshot for good",
                        [words] { return hostkit::purge(words->purge); });
  purge->add_option("SNAPSHOT", words->purge.snapshot, kSnapshotHelp)->required();
  purge->add_flag("-y,--yes", words->purge.yes, "Do not ask");
  purge->add_flag("--latest", words->purge.latest, "The latest snapshot may go too");
}

}  // namespace

void addSnapshotCommands(const AddRootCommand& add) {
  const auto words = std::make_shared<SnapshotWords>();
  addLooks(add, words);
  addComparisons(add, words);
  addKeeping(add, words);
}

void addFrom(CLI::App* command, std::string& snapshot) {
  command
      ->add_option("--from", snapshot, "The snapshot; without it the newest that holds the service")
      ->type_name("SNAPSHOT");
}

}  // namespace halyard::hostkit
