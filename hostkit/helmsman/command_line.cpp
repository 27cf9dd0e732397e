// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/command_line.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "common/durations.h"
#include "common/exit_status.h"
#include "common/messages.h"
#include "common/program.h"
#include "common/waiting.h"
#include "helmsman/command_line_snapshots.h"
#include "helmsman/lint/check.h"
#include "helmsman/program/unlock.h"
#include "helmsman/report/metrics.h"
#include "helmsman/report/status.h"
#include "helmsman/restore/file_restore.h"
#include "helmsman/restore/recover.h"
#include "helmsman/restore/restore.h"
#include "helmsman/restore/tidy.h"
#include "helmsman/restore/undo.h"
#include "helmsman/run/backup.h"
#include "helmsman/run/host_work.h"
#include "helmsman/settings/destination.h"
#include "helmsman/settings/enable.h"
#include "helmsman/settings/schedule.h"
#include "helmsman/settings/servers.h"
#include "helmsman/settings/settings.h"
#include "helmsman/settings/setup.h"
#include "helmsman/settings/volumes.h"
#include "helmsman/snapshots/machine_record.h"

namespace halyard::hostkit {

namespace {

// A backup would be judged by other services than it began with.
int switchAlone(const char* command, const std::vector<std::string>& services,
                ServiceSwitch position) {
  int status = kFailure;
  const auto work = HostWork::begin(command, status);
  return work ? switchServices(services, position) : status;
}

// What a subcommand runs, and whether it may run for everybody.
enum class Needs { nothing, root };

class CommandLine {
 public:
  CommandLine();
  int run(const std::vector<std::string>& words);

 private:
  // Gives a new subcommand its action.
  CLI::App* add(const std::string& name, const std::string& help, Needs needs,
                std::function<int()> action);
  void addWait();
  void addHostCommands();
  void addServiceCommands();
  void addSchedule();
  void addBackup();
  void addVolumes();
  void addRestoreCommands();
  void addReports();

  CLI::App app_{"Administers Halyard, the backup of this host's services.", "helmsman"};
  bool quiet_ = false;
  std::function<int()> chosen_;
  Needs needs_ = Needs::nothing;

  bool adopt_ = false;
  DestinationArguments destination_;
  ScheduleArguments schedule_;
  BackupArguments backup_;
  RestoreArguments restore_;
  RecoverArguments recover_;
  FileRestoreArguments file_;
  TidyArguments tidy_;
  UndoArguments undo_;
  StatusArguments status_;
  VolumesArguments volumes_;
  CheckArguments check_;
  MetricsArguments metrics_;
  std::vector<std::string> services_;
  std::string settingsWord_;
  std::string volumesWord_;
  std::string fileWord_;
};

CommandLine::CommandLine() {
  prepareCommandLine(app_);
  app_.add_flag("-q,--quiet", quiet_, "No notes, only results, warnings and errors");
  addWait();
  app_.fallthrough();
  app_.footer("Plain words for services: " + plainWords() + ".\n" + app_.get_footer());
  addHostCommands();
  addServiceCommands();
  addSchedule();
  addBackup();
  addVolumes();
  addSnapshotCommands(
      [this](const std::string& name, const std::string& help, std::function<int()> action) {
        return add(name, help, Needs::root, std::move(action));
      });
  addRestoreCommands();
  addReports();
}

CLI::App* CommandLine::add(const std::string& name, const std::string& help, Needs needs,
                           std::function<int()> action) {
  CLI::App* command = app_.add_subcommand(name, help);
  command->callback([this, needs, action = std::move(action)] {
    needs_ = needs;
    chosen_ = action;
  });
  return command;
}

void CommandLine::addWait() {
  app_.add_option_function<unsigned>(
          "--wait", [](const unsigned& seconds) { setWait(std::chrono::seconds(seconds)); },
          "Wait so long for another run that is in the way")
      ->type_name("SECONDS")
      ->check(CLI::Range(0U, static_cast<unsigned>(kLongestWait.count())));
}

void CommandLine::addHostCommands() {
  add("setup", "Make this host ready: folders, preferences, version file, computer name",
      Needs::root, [] { return setUpHost(); });

  CLI::App* settings = add("settings", "Write the preference files that are missing", Needs::root,
                           [] { return repairSettings(); });
  settings->add_option("WHAT", settingsWord_, "Which settings: backup")
      ->required()
      ->check(CLI::IsMember({"backup"}));

  CLI::App* destination =
      add("destination", "Set, show or list where snapshots go", Needs::root, [this] {
        if (!adopt_) return hostkit::destination(destination_);
        const int status = adoptDestination();
        const bool isToShow = status == kSuccess && destination_.json;
        return isToShow ? hostkit::destination(destination_) : status;
      });
  CLI::Option* where = destination->add_option("SPEC", destination_.specification,
                                               "A folder, or UUID=, LABEL=, PARTUUID=, PARTLABEL=");
  CLI::Option* show = destination->add_flag("--show", destination_.show, "Show the one that is set")
                          ->excludes(where);
  CLI::Option* list =
      destination->add_flag("--list", destination_.list, "List the volumes that could serve")
          ->excludes(where)
          ->excludes(show);
  destination
      ->add_flag("--adopt", adopt_, "Record the folder of the snapshots there as this machine's")
      ->excludes(where)
      ->excludes(show)
      ->excludes(list);
  destination->add_flag("--json", destination_.json, "Print JSON");
  destination->add_flag("--same-volume", destination_.sameVolume,
                        "Accept a folder on the volume that is backed up");
  destination->add_flag("--as-given", destination_.asGiven,
                        "Keep a path a path instead of remembering the volume's UUID");

  add("unlock", "Remove the pid file that a dead run left behind", Needs::root,
      [] { return unlock(); });
}

void CommandLine::addServiceCommands() {
  CLI::App* enable = add("enable", "Switch services on for backup", Needs::root,
                         [this] { return switchAlone("enable", services_, ServiceSwitch::on); });
  CLI::App* disable = add("disable", "Switch services off for backup", Needs::root,
                          [this] { return switchAlone("disable", services_, ServiceSwitch::off); });
  for (CLI::App* command : {enable, disable}) {
    command->add_option("SERVICE", services_, "Names, plain words, or beginnings of names")
        ->required();
  }
}

void CommandLine::addSchedule() {
  CLI::App* command = add("schedule", "Show or set when backups run and how long snapshots stay",
                          Needs::root, [this] { return hostkit::schedule(schedule_); });
  CLI::Option* daily = command->add_flag("--daily", schedule_.daily, "Every day");
  CLI::Option* weekly =
      command->add_option("--weekly", schedule_.weekly, "Every week on DAY")->type_name("DAY");
  CLI::Option* monthly =
      command->add_option("--monthly", schedule_.monthly, "Every month, as in 1:Sunday")
          ->type_name("WEEK:DAY");
  weekly->excludes(daily);
  monthly->excludes(daily)->excludes(weekly);
  command->add_option("--at", schedule_.at, "At this local time")->type_name("HH:MM");
  command
      ->add_option("--keep", schedule_.keep,
                   "Keep snapshots so many days, or by rules as in daily=7,weekly=4, or none")
      ->type_name("RULES");
  command
      ->add_option("--scrub", schedule_.scrub,
                   "Read and compare a part of the repository: weekly, monthly or off")
      ->type_name("PERIOD");
  CLI::Option* on = command->add_flag("--on", schedule_.on, "Switch automatic backups on");
  command->add_flag("--off", schedule_.off, "Switch automatic backups off")->excludes(on);
  command->add_flag("--json", schedule_.json, "Show as JSON");
}

void CommandLine::addBackup() {
  CLI::App* command =
      add("backup", "Back up the services, take a snapshot, judge and record the result",
          Needs::root, [this] {
            backup_.quiet = quiet_;
            const int status = hostkit::backup(backup_);
            (void)writeMetricsWhereWanted();  // It tells on its own what went wrong.
            return status;
          });
  command->add_flag("--json", backup_.json, "Print JSON lines: started, step, phase, finished");
  command->add_flag("--no-snapshot", backup_.noSnapshot,
                    "Leave the backup in /.Halyards for another engine");
  command->add_flag("--no-estimate", backup_.noEstimate,
                    "Do not ask the services for their size first");
  const auto takeLimit = [this](const std::string& text) {
    backup_.stallLimit = parseDuration(text);
    return backup_.stallLimit.has_value();
  };
  command
      ->add_option_function<std::string>(
          "--stall-limit",
          [takeLimit](const std::string& text) {
            if (!takeLimit(text)) {
              throw CLI::ValidationError("--stall-limit: '" + text +
                                         "' is no span of time such as 30s, 30min or 2h");
            }
          },
          "End a service's program after this long without progress, as in 30min")
      ->type_name("DURATION");
}

void CommandLine::addVolumes() {
  CLI::App* command =
      add("volumes", "Show which volumes a snapshot holds, or leave one out on purpose",
          Needs::root, [this] {
            using Action = VolumesArguments::Action;
            if (volumesWord_ == "leave-out") volumes_.action = Action::leaveOut;
            if (volumesWord_ == "include") volumes_.action = Action::include;
            return hostkit::volumes(volumes_);
          });
  CLI::Option* word = command->add_option("WHAT", volumesWord_, "leave-out or include")
                          ->check(CLI::IsMember({"leave-out", "include"}));
  word->needs(command->add_option("PATH", volumes_.path, "Where it is mounted, or a listed file"));
  command->add_flag("--json", volumes_.json, "Print JSON");
}

void CommandLine::addRestoreCommands() {
  CLI::App* restore = add("restore", "Put one service back from a snapshot", Needs::root,
                          [this] { return hostkit::restore(restore_); });
  restore
      ->add_option("SERVICE", restore_.service, "A name, a plain word, or the beginning of a name")
      ->required();
  addFrom(restore, restore_.snapshot);
  restore->add_option("--opt", restore_.option, "Hand TEXT to the service")->type_name("TEXT");
  restore->add_flag("-n,--dry-run", restore_.dryRun, "Only show what would happen");
  restore->add_flag("-y,--yes", restore_.yes, "Do not ask");
  restore->add_flag("--force", restore_.force,
                    "Restore also a part of a service, and lose what an earlier restore set aside");
  restore->add_flag("--no-verify", restore_.noVerify, "Do not verify the service afterwards");

  CLI::App* recover = add("recover", "Bring the services of a recovered host back", Needs::root,
                          [this] { return hostkit::recover(recover_); });
  recover->add_option("--from", recover_.snapshot, "The snapshot that the host came from")
      ->type_name("SNAPSHOT");
  recover->add_flag("--json", recover_.json, "Print JSON");
  recover->add_flag("-n,--dry-run", recover_.dryRun, "Only show what would happen");
  recover->add_flag("-y,--yes", recover_.yes, "Do not ask");
  recover->add_flag("--no-verify", recover_.noVerify, "Do not verify the services afterwards");

  CLI::App* file = add("file", "Bring one file or folder of the host back", Needs::root,
                       [this] { return restoreFile(file_); });
  file->add_option("WHAT", fileWord_, "restore")->required()->check(CLI::IsMember({"restore"}));
  file->add_option("PATH", file_.path, "Its absolute path on the host")->required();
  file->add_option("--from", file_.snapshot, "The snapshot; without it the latest")
      ->type_name("SNAPSHOT");
  CLI::Option* to = file->add_option("--to", file_.to, "Into this folder")->type_name("DIR");
  file->add_flag("--in-place", file_.inPlace, "In the place of the live one, which is set aside")
      ->excludes(to);
  file->add_flag("-n,--dry-run", file_.dryRun, "Only show what would happen");
  file->add_flag("-y,--yes", file_.yes, "Do not ask");
  file->add_flag("--json", file_.json, "Print JSON");

  CLI::App* undo = add("undo", "Take the last restore of a service or file back", Needs::root,
                       [this] { return hostkit::undo(undo_); });
  undo->add_option("SERVICE", undo_.service,
                   "A name, a plain word, the beginning of a name, or the path of a file")
      ->required();
  undo->add_flag("-y,--yes", undo_.yes, "Do not ask");

  CLI::App* tidy = add("tidy", "Remove what restores have set aside", Needs::root,
                       [this] { return hostkit::tidy(tidy_); });
  tidy->add_option("--older-than", tidy_.olderThan, "Only of restores that are older")
      ->type_name("AGE");
  tidy->add_flag("--json", tidy_.json, "Print JSON");
  tidy->add_flag("-n,--dry-run", tidy_.dryRun, "Only show what would happen");
  tidy->add_flag("-y,--yes", tidy_.yes, "Do not ask");
}

void CommandLine::addReports() {
  CLI::App* status = add("status", "Show how the backups of this host stand", Needs::root,
                         [this] { return hostkit::status(status_); });
  status->add_flag("--json", status_.json, "Print JSON");
  status->add_flag("--check", status_.check, "Exit with 1 unless all is well");
  status->add_flag("--size", status_.size, "Ask the services for their size now");

  CLI::App* check = add("check", "Look for mistakes in descriptors and preferences", Needs::root,
                        [this] { return hostkit::check(check_); });
  check->add_flag("--json", check_.json, "Print JSON");
  check->add_flag("--no-size", check_.noSize, "Do not ask the services for their size");

  CLI::App* metrics = add("metrics", "Print the state of the backups for Prometheus", Needs::root,
                          [this] { return hostkit::metrics(metrics_); });
  CLI::Option* write =
      metrics->add_flag("--write", metrics_.write, "Write the textfile instead of printing it");
  metrics->add_option("--folder", metrics_.folder, "The textfile folder")
      ->type_name("DIR")
      ->needs(write);
  metrics
      ->add_option("--unit-failed", metrics_.unitFailed, "Record that UNIT failed, for OnFailure=")
      ->type_name("UNIT");
}

int CommandLine::run(const std::vector<std::string>& words) {
  return runProgram(app_, words, [this] {
    setQuiet(quiet_);
    if (needs_ == Needs::root && ::geteuid() != 0) throw Failure("this needs to be run as root");
    return chosen_();
  });
}

}  // namespace

int runHelmsman(int count, char** words) { return CommandLine().run(wordsOf(count, words)); }

}  // namespace halyard::hostkit
