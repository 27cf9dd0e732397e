// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Files and folders of the host, one item at a time; whole trees are in tree_copy.h.
//
// "Exists" follows links. Nothing here throws or prints: a failure is the false, absent or empty
// value, or the error. An empty path names nothing (never the working folder).
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"
#include "host/files/descriptor.h"

namespace halyard::host {

bool exists(const std::string& path);
/// Whether it is sure that nothing is there. What cannot be looked at neither exists nor is absent:
/// ask this before anything is made, or called gone, because it is not there.
bool isAbsent(const std::string& path);
bool isDirectory(const std::string& path);
/// Whether the name itself is a folder, no link to one.
bool isRealDirectory(const std::string& path);
/// Whether the name itself is a link, wherever it leads.
bool isSymbolicLink(const std::string& path);
/// The absolute path without links, "." and ".."; absent when it leads nowhere.
std::optional<std::string> realPath(const std::string& path);
/// The same up to the first name that is not there, that name included.
std::string realPathAsFarAsItLeads(const std::string& path);
/// A regular file, or a link to one, that may be executed; a folder never is.
bool isExecutableFile(const std::string& path);

/// The settable attributes of an item.
struct Attributes {
  uid_t owner = 0;
  gid_t group = 0;
  mode_t permissions = 0;  ///< The twelve permission bits.
};

/// Of the item that the path leads to; absent when there is none.
std::optional<Attributes> readAttributes(const std::string& path);

/// A new item's owner and group as account names; a name that the host lacks leaves that part as
/// it is. Permissions are exact, whatever the umask.
struct NamedAttributes {
  std::string owner;
  std::string group;
  mode_t permissions = 0;
};

/// Makes one folder, no intermediate ones. Without attributes: 0777 less the umask. With them: the
/// permissions are exact whatever the umask, and a refused owner or group is ignored.
/// False when anything stands there already or the folder could not be made.
bool createDirectory(const std::string& path);
bool createDirectory(const std::string& path, const Attributes& attributes);
bool createDirectory(const std::string& path, const NamedAttributes& attributes);

/// The names in a folder without "." and "..", in ascending byte order; none when it cannot be
/// listed. An unreadable rest of a listing is left out.
std::vector<std::string> listDirectory(const std::string& path);
/// The same, and the error when the names are not all that there are.
Status listDirectory(const std::string& path, std::vector<std::string>& names);

/// The bytes of a regular file of at most `limit` bytes; absent for anything else (a FIFO or a
/// device is never waited for).
std::optional<std::string> readFile(const std::string& path, std::size_t limit);

/// Whether a small file must survive a power cut.
enum class Durability {
  processes,  ///< Absent, old or complete for every process, at any kill.
  power,      ///< The same after a power cut too: synced before and after the rename.
};

/// Writes a small file: to a new temporary name beside it (O_EXCL, so that no planted link or FIFO
/// is followed), then renamed over `path`. Mode 0666 less the umask. No unfinished file is left
/// behind on any error.
Status writeFile(const std::string& path, std::string_view bytes,
                 Durability durability = Durability::processes);
/// The same with exactly this mode, whatever the umask.
Status writeFile(const std::string& path, std::string_view bytes, Durability durability,
                 mode_t mode);
/// The same for a name in an open folder, whatever stands under the name.
Status writeFileAt(int folder, const std::string& name, std::string_view bytes,
                   Durability durability, mode_t mode);

/// Text that is handed over piece by piece, so that nobody needs the whole of it in memory.
using PieceSink = std::function<void(std::string_view piece)>;
using PieceSource = std::function<void(const PieceSink& sink)>;

/// As writeFile with the pieces that `produce` gives, then hands the bytes read back to `readBack`,
/// through the descriptor that wrote them, never by name. Nothing is handed over when the file
/// could not be written.
Status writeFileAndReadBack(const std::string& path, const PieceSource& produce,
                            const PieceSink& readBack,
                            Durability durability = Durability::processes);

/// Creates the file with exactly that mode, whatever the umask, or empties the one that is there
/// and leaves its mode alone. Only a regular file, or a link to one, is emptied: a FIFO is never
/// waited for, a device or a folder left as it is (and the answer EINVAL).
Status createOrEmptyFile(const std::string& path, mode_t mode);

/// A file opened for update without creating it; each append goes to the end of that moment.
class AppendFile {
 public:
  AppendFile() = default;
  /// A missing file, or one that is no regular file, gives a handle that writes nothing.
  explicit AppendFile(const std::string& path);

  /// One write at the current end; an error is ignored.
  void append(std::string_view bytes) const;

 private:
  Descriptor descriptor_;
};

}  // namespace halyard::host
