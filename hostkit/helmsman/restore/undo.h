// "helmsman undo": takes a restore of one service back.
#pragma once

#include <string>

namespace halyard::hostkit {

struct UndoArguments {
  std::string service;
  bool yes = false;
};

/// Puts every item back that the last restore of the service set aside. The restored items take
/// their place under ".previous", each pair in one step, so nothing is lost at any instant and a
/// second undo brings the restored state back. What the restore made anew goes aside.
///
/// Returns: success when every item is back.
int undo(const UndoArguments& arguments);

}  // namespace halyard::hostkit
