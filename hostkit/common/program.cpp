// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/program.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <nlohmann/json.hpp>
#include <regex>

#include "common/messages.h"
#include "common/version.h"

namespace halyard::hostkit {

namespace {

constexpr char kExitStatuses[] =
    "Exit status: 0 done; 1 failed, or a check found an error; 2 wrong usage, nothing was done;\n"
    "3 busy, try again later; 4 done in part.";

// "helmsman" or "helmsman restore": what the wrong word was said to.
std::string commandName(const CLI::App& app) {
  const std::vector<CLI::App*> chosen = app.get_subcommands();
  return chosen.empty() ? app.get_name() : app.get_name() + " " + chosen.front()->get_name();
}

// What may be said to the program, or to the subcommand that was chosen; empty for nothing.
std::string subcommandsOf(const CLI::App& app) {
  std::string names;
  for (const CLI::App* command : app.get_subcommands(nullptr)) {
    names += (names.empty() ? "" : ", ") + command->get_name();
  }
  return names;
}

std::string optionsOf(const CLI::App& app) {
  std::string names;
  const std::vector<CLI::App*> chosen = app.get_subcommands();
  for (const CLI::Option* option : (chosen.empty() ? &app : chosen.front())->get_options()) {
    if (option->get_positional()) continue;
    names += (names.empty() ? "" : ", ") + option->get_name();
  }
  return names;
}

std::string wordsFor(const CLI::App& command) {
  std::string names;
  for (const CLI::Option* option : command.get_options()) {
    if (option->get_positional()) names += " " + option->get_name(true);
  }
  return command.get_name() + " takes" + (names.empty() ? " options only" : names);
}

// The parser's own sentences, in plain words.
std::string plainText(const std::string& text) {
  static const std::pair<std::regex, const char*> kSentences[] = {
      {std::regex("Could not convert: (\\S+) = (.*)"), "$1 cannot be \"$2\""},
      {std::regex("(\\S+): [0-9]+ required (\\S+) missing"), "$1 needs a value, $2"},
      {std::regex("(\\S+): At Most 1 required but received ([0-9]+)"),
       "$1 takes one value, not $2"},
      {std::regex("\\S+: (.*) not in \\{(.*)\\}"), "\"$1\" has no meaning here; there are: $2"},
      {std::regex("(\\S+): Value (.*) not in range (\\S+) to (\\S+)"),
       "$1 cannot be \"$2\": it is a whole number from $3 to $4"},
      {std::regex("(\\S+) excludes (\\S+)"), "$1 and $2 exclude each other"},
      {std::regex("(\\S+) requires (\\S+)"), "$1 needs $2"},
      {std::regex("(\\S+) is required"), "$1 is missing"},
  };
  for (const auto& [sentence, plain] : kSentences) {
    if (std::regex_match(text, sentence)) return std::regex_replace(text, sentence, plain);
  }
  return text;
}

// The parser names what is missing before what it does not know; the unknown word comes first here,
// because it is usually the reason why something is missing.
std::string refusalText(const CLI::App& app, const CLI::ParseError& problem) {
  if (dynamic_cast<const CLI::ConfigError*>(&problem) != nullptr) {
    return app.get_config_ptr()->as<std::string>() + ": " + problem.what();
  }
  const std::vector<std::string> unknown = app.remaining(true);
  if (unknown.empty() && app.get_subcommands().empty() && problem.get_name() == "RequiredError") {
    return "a subcommand is missing; there are: " + subcommandsOf(app);
  }
  if (unknown.empty()) return plainText(problem.what());
  const std::string& word = unknown.front();
  if (word.starts_with("-")) {
    return "there is no option \"" + word + "\"; there are: " + optionsOf(app);
  }
  if (app.get_subcommands().empty()) {
    return "there is no subcommand \"" + word + "\"; there are: " + subcommandsOf(app);
  }
  return "the word \"" + word + "\" has no meaning here; " +
         wordsFor(*app.get_subcommands().front());
}

int refuse(const CLI::App& app, const CLI::ParseError& problem) {
  printError(refusalText(app, problem) + " (see: " + commandName(app) + " --help)");
  return kUsageError;
}

// Help and the version are answers, given by the parser.
int parseAndRun(CLI::App& app, std::vector<std::string> words,
                const std::function<int()>& command) {
  std::reverse(words.begin(), words.end());  // As the parser takes them.
  try {
    app.parse(std::move(words));
  } catch (const CLI::ParseError& problem) {
    if (problem.get_exit_code() != 0) return refuse(app, problem);
    return app.exit(problem);
  }
  return command();
}

int endOf(const std::function<int()>& command) {
  try {
    return command();
  } catch (const Failure& failure) {
    printError(failure.what());
    return failure.status();
  } catch (const std::exception& error) {
    printError(error.what());
    return kFailure;
  }
}

bool wantsJson(const std::vector<std::string>& words) {
  return std::find(words.begin(), words.end(), "--json") != words.end();
}

}  // namespace

void prepareCommandLine(CLI::App& app) {
  app.set_version_flag("--version", app.get_name() + " " + versionText(),
                       "Print the version and exit");
  app.require_subcommand(1);
  app.footer(std::string(kExitStatuses) + "\nSee " + app.get_name() + "(8).");
}

int runProgram(CLI::App& app, const std::vector<std::string>& words,
               const std::function<int()>& command) {
  setProgramName(app.get_name());
  (void)std::signal(SIGPIPE, SIG_IGN);
  (void)std::signal(SIGXFSZ, SIG_IGN);
  const int status = endOf([&] { return parseAndRun(app, words, command); });
  if (status != kSuccess && wantsJson(words)) printJsonError(status);
  return finishOutput() || status != kSuccess ? status : kFailure;
}

std::vector<std::string> wordsOf(int count, char** words) {
  return count > 1 ? std::vector<std::string>(words + 1, words + count)
                   : std::vector<std::string>();
}

}  // namespace halyard::hostkit
