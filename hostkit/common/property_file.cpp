#include "common/property_file.h"

#include <sys/stat.h>

#include <climits>
#include <cstdlib>
#include <memory>

#include "host/files.h"

namespace halyard::hostkit {

namespace {

constexpr mode_t kNewFileMode = 0644;

std::string targetOf(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr),
                                                         &std::free);
  return real ? real.get() : path;
}

}  // namespace

std::optional<host::PropertyDictionary> readPropertyFile(const std::string& path,
                                                         std::string& problem) {
  problem.clear();
  if (!host::exists(path)) return std::nullopt;
  auto dictionary = host::readDictionary(path);
  if (!dictionary) problem = path + " is no readable property list with a dictionary";
  return dictionary;
}

bool writePropertyFile(const std::string& path, const host::PropertyDictionary& dictionary) {
  const std::string target = targetOf(path);
  const auto before = host::readAttributes(target);
  if (!host::writeFile(target, host::writePropertyList(dictionary), host::Durability::power)) {
    return false;
  }
  return ::chmod(target.c_str(), before ? before->permissions : kNewFileMode) == 0;
}

}  // namespace halyard::hostkit
