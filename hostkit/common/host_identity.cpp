#include "common/host_identity.h"

#include "base/property_list.h"
#include "base/text.h"
#include "common/paths.h"
#include "host/files/property_file.h"

namespace halyard::hostkit {

std::string computerName() {
  const auto configuration = host::readDictionary(kHostConfigFile);
  if (!configuration) return kUnknownComputer;
  const PropertyDictionary* outer = configuration->dictionary("System");
  const PropertyDictionary* inner = outer == nullptr ? nullptr : outer->dictionary("System");
  if (inner == nullptr) return kUnknownComputer;
  return inner->text("ComputerName").value_or(kUnknownComputer);
}

std::string computerNameFromHostName(std::string_view hostName) {
  std::string name;
  for (const char character : hostName.substr(0, hostName.find('.'))) {
    if (character == '/' || static_cast<unsigned char>(character) <= ' ') continue;
    name += character;
  }
  return isUsableComputerName(name) ? name : kUnknownComputer;
}

bool isUsableComputerName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.size() <= 255 &&
         name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

}  // namespace halyard::hostkit
