// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// drivectl: what is known of the volumes of this host.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "base/property_list.h"
#include "common/exit_status.h"
#include "common/messages.h"
#include "common/program.h"
#include "drivectl/report.h"
#include "host/volumes/volume.h"

namespace {

using namespace halyard::hostkit;  // NOLINT(google-build-using-namespace)
namespace host = halyard::host;

enum class Form { text, propertyList, json };

int info(const std::string& path, Form form) {
  const auto volume = host::volumeOf(path);
  if (!volume) {
    printError(path + ": " + errnoText(volume.error().code));
    return kFailure;
  }
  switch (form) {
    case Form::propertyList:
      std::fputs(halyard::writePropertyList(volumeDictionary(*volume)).c_str(), stdout);
      break;
    case Form::json:
      printJson(volumeJson(*volume));
      break;
    case Form::text:
      std::fputs(volumeText(*volume).c_str(), stdout);
      break;
  }
  return kSuccess;
}

int list(Form form) {
  const std::vector<host::Volume> volumes = host::mountedVolumes();
  if (form == Form::text) {
    std::fputs(volumeTable(volumes).c_str(), stdout);
  } else if (form == Form::json) {
    nlohmann::json document = {{"volumes", nlohmann::json::array()}};
    for (const host::Volume& volume : volumes) document["volumes"].push_back(volumeJson(volume));
    printJson(document);
  } else {
    halyard::PropertyArray array;
    for (const host::Volume& volume : volumes) array.emplace_back(volumeDictionary(volume));
    std::fputs(halyard::writePropertyList(halyard::PropertyValue(array)).c_str(), stdout);
  }
  return kSuccess;
}

}  // namespace

int main(int count, char** arguments) {
  CLI::App app("Tells what is known of the volumes of this host.", "drivectl");
  prepareCommandLine(app);

  std::string path;
  bool asPropertyList = false;
  bool asJson = false;
  CLI::App* infoCommand = app.add_subcommand("info", "Describe the volume that holds PATH");
  infoCommand->add_option("PATH", path, "Any file or folder of the volume")->required();
  CLI::App* listCommand = app.add_subcommand("list", "List the mounted volumes that hold files");
  for (CLI::App* command : {infoCommand, listCommand}) {
    CLI::Option* plist =
        command->add_flag("--plist", asPropertyList, "Print an XML property list (also: -plist)");
    command->add_flag("--json", asJson, "Print JSON")->excludes(plist);
  }

  // "-plist" is written with one dash by those who call this program; the parser wants two.
  std::vector<std::string> words = wordsOf(count, arguments);
  std::replace(words.begin(), words.end(), std::string("-plist"), std::string("--plist"));
  return runProgram(app, words, [&] {
    const Form form = asPropertyList ? Form::propertyList : asJson ? Form::json : Form::text;
    return infoCommand->parsed() ? info(path, form) : list(form);
  });
}
