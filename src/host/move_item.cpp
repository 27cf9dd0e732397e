#include "host/files.h"
#include "host/location.h"
#include "host/rename_item.h"
#include "host/system_call.h"

namespace halyard::host {

bool moveItem(const std::string& from, const std::string& to) {
  const Location source = locate(from);
  const Location target = locate(to);
  if (!source || !target) return false;
  return renameWithoutReplacing(source.folder.get(), source.name, target.folder.get(),
                                target.name) == 0;
}

}  // namespace halyard::host
