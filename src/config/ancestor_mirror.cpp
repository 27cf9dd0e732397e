#include "config/ancestor_mirror.h"

#include <cstddef>
#include <vector>

#include "base/text.h"
#include "host/files/files.h"

namespace halyard {

void mirrorAncestorDirectories(const std::string& source, const std::string& copyRoot) {
  const std::vector<std::string> components = pathComponents(source);
  std::string above;  // the source folder whose attributes the next folder gets
  for (std::size_t i = 0; i + 2 < components.size(); ++i) {
    const auto attributes = host::readAttributes(above);
    above = above.empty() ? components[i] : appendPath(above, components[i]);
    const std::string target = appendPath(copyRoot, above);
    if (host::exists(target)) continue;
    (void)(attributes ? host::createDirectory(target, *attributes)
                      : host::createDirectory(target));  // The copy that follows will tell.
  }
}

}  // namespace halyard
