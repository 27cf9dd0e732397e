// drivectl: what is known of the volumes of this host.
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "base/property_list.h"
#include "common/exit_status.h"
#include "common/messages.h"
#include "common/version.h"
#include "common/volumes.h"
#include "drivectl/report.h"

namespace {

using namespace halyard::hostkit;  // NOLINT(google-build-using-namespace)

enum class Form { text, propertyList, json };

int info(const std::string& path, Form form) {
  int error = 0;
  const auto volume = volumeOf(path, error);
  if (!volume) {
    printError(path + ": " + errnoText(error));
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
  return finishOutput() ? kSuccess : kFailure;
}

int list(Form form) {
  const std::vector<Volume> volumes = mountedVolumes();
  if (form == Form::text) {
    std::fputs(volumeTable(volumes).c_str(), stdout);
  } else if (form == Form::json) {
    nlohmann::json document = nlohmann::json::array();
    for (const Volume& volume : volumes) document.push_back(volumeJson(volume));
    printJson(document);
  } else {
    halyard::PropertyArray array;
    for (const Volume& volume : volumes) array.emplace_back(volumeDictionary(volume));
    std::fputs(halyard::writePropertyList(halyard::PropertyValue(array)).c_str(), stdout);
  }
  return finishOutput() ? kSuccess : kFailure;
}

// "-plist" is written with one dash by those who call this program; the parser wants two.
std::vector<std::string> wordsOf(int count, char** words) {
  std::vector<std::string> result;
  for (int index = count - 1; index > 0; --index) {
    const std::string word = words[index];
    result.push_back(word == "-plist" ? "--plist" : word);
  }
  return result;
}

}  // namespace

int main(int count, char** words) {
  setProgramName("drivectl");
  CLI::App app("Tells what is known of the volumes of this host.", "drivectl");
  app.set_version_flag("--version", std::string("drivectl ") + versionText());
  app.require_subcommand(1);
  app.footer("Exit status: 0 success, 1 failure, 2 a command line that makes no sense.");

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

  try {
    app.parse(wordsOf(count, words));
  } catch (const CLI::ParseError& problem) {
    return app.exit(problem) == 0 ? kSuccess : kUsageError;
  }
  const Form form = asPropertyList ? Form::propertyList : asJson ? Form::json : Form::text;
  return infoCommand->parsed() ? info(path, form) : list(form);
}
