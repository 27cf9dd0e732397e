#include "host/files.h"
#include "host/location.h"
#include "host/remove_tree.h"
#include "host/rename_item.h"
#include "host/system_call.h"
#include "host/tree_copy.h"

namespace halyard::host {

bool moveItem(const std::string& from, const std::string& to) {
  const Location source = locate(from);
  const Location target = locate(to);
  if (!source || !target) return false;
  const int error =
      renameWithoutReplacing(source.folder.get(), source.name, target.folder.get(), target.name);
  if (error != EXDEV) return error == 0;
  return copyItem(from, to) && removeTreeAt(source.folder.get(), source.name) == 0;
}

}  // namespace halyard::host
