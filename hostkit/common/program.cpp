// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/program.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <nlohmann/json.hpp>

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

// The parser names what is missing before what it does not know; the unknown word comes first here,
// because it is usually the reason why something is missing.
std::string refusalText(const CLI::App& app, const CLI::ParseError& problem) {
  if (dynamic_cast<const CLI::ConfigError*>(&problem) != nullptr) {
    return app.get_config_ptr()->as<std::string>() + ": " + problem.what();
  }
  const std::vector<std::string> unknown = app.remaining(true);
  if (unknown.empty() && app.get_subcommands().empty() && problem.get_name() == "RequiredError") {
    return "a subcommand is missing";
  }
  if (unknown.empty()) return problem.what();
  const std::string& word = unknown.front();
  if (word.starts_with("-")) return "there is no option \"" + word + "\"";
  if (app.get_subcommands().empty()) return "there is no subcommand \"" + word + "\"";
  return "the word \"" + word + "\" has no meaning here";
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
