// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/command_line.h"

#include <charconv>
#include <chrono>
#include <istream>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/messages.h"
#include "common/paths.h"
#include "common/program.h"
#include "common/waiting.h"

namespace halyard::snapwheel {

namespace {

/// The lines of the configuration file, without those of "exclude", which would count for nothing
/// beside a pattern on the command line: they add up.
class ConfigurationFile final : public CLI::ConfigTOML {
 public:
  explicit ConfigurationFile(std::vector<std::string>& excludes) : excludes_(&excludes) {}
  std::vector<CLI::ConfigItem> from_config(std::istream& input) const override {
    std::vector<CLI::ConfigItem> kept;
    for (CLI::ConfigItem& item : CLI::ConfigTOML::from_config(input)) {
      if (item.parents.empty() && item.name == "exclude") {
        excludes_->insert(excludes_->end(), item.inputs.begin(), item.inputs.end());
      } else {
        kept.push_back(std::move(item));
      }
    }
    return kept;
  }

 private:
  std::vector<std::string>* excludes_;
};

/// Options that every command takes, before or after its word and in the configuration file.
void addCommonOptions(CLI::App& app, CommandOptions& options) {
  app.set_config("--config", hostkit::kEngineConfigFile, "Read options from this file");
  app.config_formatter(std::make_shared<ConfigurationFile>(options.configuredExcludes));
  // A rule that is misspelt must not be passed over: snapshots would go that it was to keep.
  app.allow_config_extras(CLI::config_extras_mode::error);
  app.add_option("--destination", options.destination,
                 "The backup volume: a folder, UUID=..., LABEL=... (else as the preferences say)")
      ->type_name("SPEC");
  app.add_option("--computer", options.computer,
                 "The host whose snapshots are meant (else this one)")
      ->type_name("NAME");
  app.add_option("--days-to-retain", options.days,
                 "Keep everything of the last N days (else DaysToRetain of the preferences)")
      ->type_name("N");
  const auto keep = [&app](const char* name, unsigned& count, const char* text) {
    app.add_option(name, count, text)->type_name("N");
  };
  keep("--keep-last", options.rules.last, "Keep the newest N");
  keep("--keep-hourly", options.rules.hourly, "Keep the newest of each of the last N hours");
  keep("--keep-daily", options.rules.daily, "Keep the newest of each of the last N days");
  keep("--keep-weekly", options.rules.weekly, "Keep the newest of each of the last N weeks");
  keep("--keep-monthly", options.rules.monthly, "Keep the newest of each of the last N months");
  keep("--keep-yearly", options.rules.yearly, "Keep the newest of each of the last N years");
  app.add_option("--exclude-file", options.exclusionFile, "The list of what is left out")
      ->type_name("FILE");
  app.add_option("--exclude", options.excludes, "One more pattern to leave out")
      ->type_name("PATTERN")
      ->allow_extra_args(false);
  app.add_option("--further-volume", options.furtherVolumes,
                 "A mount point that each snapshot holds beside /, in a folder of its own")
      ->type_name("MOUNTPOINT")
      ->allow_extra_args(false);
  app.add_flag_callback(
      "--quiet", [] { hostkit::setQuiet(true); }, "No notes on standard error");
}

void addWait(CLI::App& app) {
  app.add_option_function<unsigned>(
         "--wait", [](const unsigned& seconds) { hostkit::setWait(std::chrono::seconds(seconds)); },
         "Wait so long for another process that makes or removes snapshots")
      ->type_name("SECONDS")
      ->check(CLI::Range(0U, static_cast<unsigned>(hostkit::kLongestWait.count())));
}

void addSnapshot(CLI::App& app, CommandOptions& options, Command& command) {
  CLI::App* word = app.add_subcommand("snapshot", "Take a snapshot of this host");
  word->add_option("--source", options.source, "The root of the volume (default: /)")
      ->type_name("DIR");
  word->add_option("--volume", options.volume, "Its folder in the snapshot (default: System)")
      ->type_name("NAME");
  word->add_option("--add-volume", options.addedVolumes,
                   "One more, also beside those of the configuration file")
      ->type_name("MOUNTPOINT")
      ->allow_extra_args(false);
  word->add_flag("--prune", options.prune, "Prune afterwards, when nothing was left out");
  word->add_flag("--json", options.json, "Print the manifest as JSON");
  word->callback([&command] { command = runSnapshot; });
}

void addList(CLI::App& app, CommandOptions& options, Command& command) {
  CLI::App* word = app.add_subcommand("list", "List the snapshots, oldest first");
  word->add_flag("--json", options.json, "As JSON");
  word->add_flag("--all", options.allComputers, "Of every host in the repository");
  word->callback([&command] { command = runList; });
}

void addDelete(CLI::App& app, CommandOptions& options, Command& command) {
  CLI::App* word = app.add_subcommand("delete", "Remove snapshots");
  word->add_option("SNAPSHOT", options.names, "Names, beginnings of names, paths or \"latest\"")
      ->required();
  word->add_flag("--force", options.force, "Pinned ones, too");
  word->callback([&command] { command = runDelete; });
}

void addOneSnapshot(CLI::App& word, CommandOptions& options) {
  word.add_option("SNAPSHOT", options.names, "A name, the beginning of one, a path or \"latest\"")
      ->required()
      ->expected(1);
}

void addPins(CLI::App& app, CommandOptions& options, Command& command) {
  CLI::App* pin = app.add_subcommand("pin", "Keep a snapshot whatever the rules say");
  addOneSnapshot(*pin, options);
  pin->add_option("--note", options.note, "What for")->type_name("TEXT");
  pin->callback([&command] { command = runPin; });
  CLI::App* unpin = app.add_subcommand("unpin", "Let the rules decide again");
  addOneSnapshot(*unpin, options);
  unpin->callback([&command] { command = runUnpin; });
}

void addLatest(CLI::App& app, Command& command) {
  CLI::App* word = app.add_subcommand("latest", "Make Latest lead to the newest snapshot");
  word->callback([&command] { command = runLatest; });
}

void addPrune(CLI::App& app, CommandOptions& options, Command& command) {
  CLI::App* word = app.add_subcommand("prune", "Remove the snapshots that no rule keeps");
  word->add_flag("--dry-run,-n", options.dryRun, "Only show what would go, and why the rest stays");
  word->add_flag("--json", options.json, "As JSON");
  word->callback([&command] { command = runPrune; });
}

void addRestore(CLI::App& app, CommandOptions& options, Command& command) {
  CLI::App* word = app.add_subcommand("restore", "Put a snapshot onto a folder");
  addOneSnapshot(*word, options);
  word->add_option("--to", options.restore.target, "The folder, usually a mounted empty volume")
      ->type_name("DIR")
      ->required();
  word->add_option("--volume", options.restore.volume, "The volume's folder in the snapshot")
      ->type_name("NAME");
  word->add_flag("--force", options.restore.force,
                 "Also onto a folder that is not empty, or the running system");
  word->add_flag("--map-owners", options.restore.mapOwners,
                 "Give owners the numbers that their names have on this host");
  word->add_option("--path", options.restore.paths,
                   "Only this file or folder, as it is called on the host; more than once")
      ->type_name("PATH")
      ->allow_extra_args(false);
  word->add_flag("--without-attributes", options.restore.withoutAttributes,
                 "Onto a target that cannot hold owners, permissions and the like");
  word->add_flag("--dry-run,-n", options.restore.dryRun, "Only show what would be written");
  word->add_flag("--json", options.json, "As JSON");
  word->callback([&command] { command = runRestore; });
}

void addDiff(CLI::App& app, CommandOptions& options, Command& command) {
  CLI::App* word = app.add_subcommand("diff", "Tell what differs between two snapshots");
  word->add_option("SNAPSHOT", options.names,
                   "The older one, the newer one unless --now, and paths that are meant")
      ->required();
  word->add_flag("--now", options.isNow, "Compare with what the host has now");
  word->add_flag("--json", options.json, "As JSON");
  word->callback([&command] { command = runDiff; });
}

void addFind(CLI::App& app, CommandOptions& options, Command& command) {
  CLI::App* word = app.add_subcommand("find", "Find files in all snapshots");
  word->add_option("PATTERN", options.pattern, "A shell pattern; with a \"/\" of whole paths")
      ->required();
  word->add_flag("--json", options.json, "As JSON");
  word->callback([&command] { command = runFind; });
}

/// "2/7". Throws what the parser tells as a wrong usage.
VerifyPart partIn(const std::string& text) {
  VerifyPart part;
  const auto slash = text.find('/');
  const auto numberIn = [](std::string_view digits) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return error == std::errc{} && end == digits.data() + digits.size() ? number : 0;
  };
  if (slash != std::string::npos) {
    part.number = numberIn(std::string_view(text).substr(0, slash));
    part.count = numberIn(std::string_view(text).substr(slash + 1));
  }
  if (slash == std::string::npos || part.number == 0 || part.number > part.count) {
    throw CLI::ValidationError("--part", text + " is no part, such as 1/7");
  }
  return part;
}

void addCheck(CLI::App& app, CommandOptions& options, Command& command) {
  CLI::App* word = app.add_subcommand("check", "Look the repository over");
  word->add_flag_callback(
      "--read-metadata", [&options] { options.depth = CheckDepth::metadata; },
      "Look at every item and compare the count with the manifest");
  word->add_flag_callback(
      "--verify,--read-data", [&options] { options.depth = CheckDepth::contents; },
      "Read every file and compare it with the digest of what was put there, too");
  word->add_option_function<std::string>(
          "--part",
          [&options](const std::string& text) {
            options.part = partIn(text);
            options.depth = CheckDepth::contents;
          },
          "Of the files only this part, so that M runs verify all")
      ->type_name("N/M");
  word->add_flag("--json", options.json, "As JSON");
  word->callback([&command] { command = runCheck; });
}

}  // namespace

void addCommandLine(CLI::App& app, CommandOptions& options, Command& command) {
  options.exclusionFile = hostkit::kExclusionFile;
  hostkit::prepareCommandLine(app);
  app.fallthrough();
  addCommonOptions(app, options);
  addWait(app);
  addSnapshot(app, options, command);
  addList(app, options, command);
  addDelete(app, options, command);
  addPins(app, options, command);
  addLatest(app, command);
  addPrune(app, options, command);
  addRestore(app, options, command);
  addDiff(app, options, command);
  addFind(app, options, command);
  addCheck(app, options, command);
}

}  // namespace halyard::snapwheel
