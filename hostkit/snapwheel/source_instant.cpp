// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/source_instant.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>
#include <vector>

#include "base/text.h"
#include "host/files/system_call.h"
#include "host/volumes/subvolume.h"

namespace halyard::snapwheel {

namespace {

constexpr char kInstantName[] = "instant";
constexpr mode_t kPlaceMode = 0700;

/// Gives a folder of the host back the modification time that it had, which the engine's own work
/// in it has moved.
class KeptTime {
 public:
  explicit KeptTime(int folder) : folder_(folder) { isKnown_ = ::fstat(folder, &before_) == 0; }
  ~KeptTime() {
    const struct timespec times[] = {{0, UTIME_OMIT}, before_.st_mtim};
    if (isKnown_) (void)::futimens(folder_, times);
  }
  KeptTime(const KeptTime&) = delete;
  KeptTime& operator=(const KeptTime&) = delete;

 private:
  int folder_;
  bool isKnown_ = false;
  struct stat before_ {};
};

bool isLeftOut(const SourceInstant::LeavesOut& leavesOut, std::string_view path) {
  for (std::size_t end = path.find('/');; end = path.find('/', end + 1)) {
    if (leavesOut(path.substr(0, end))) return true;
    if (end == std::string_view::npos) return false;
  }
}

/// Puts snapshots of the subvolumes that lie in `live` where `copy`, a snapshot of it, has empty
/// folders in their places. `path` leads to it, and ends with a slash when it is not empty.
Status copyNested(int live, int copy, const std::string& path,
                  const SourceInstant::LeavesOut& leavesOut, bool& found) {
  const auto nested = host::subvolumesIn(live);
  if (!nested) return nested.error();
  for (const std::string& inner : *nested) {
    if (inner.starts_with(std::string(kInstantFolder) + "/") && path.empty()) continue;
    if (isLeftOut(leavesOut, path + inner)) continue;
    found = true;
    const std::string name = lastPathComponent(inner);
    const host::Descriptor original = host::openInVolume(live, inner);
    const host::Descriptor above = host::openInVolume(copy, parentPath("./" + inner));
    if (!original || !above) return Error{errno, path + inner};
    const KeptTime kept(above.get());
    const int error =
        host::errorOf([&] { return ::unlinkat(above.get(), name.c_str(), AT_REMOVEDIR); });
    if (error != 0) return Error{error, path + inner};
    if (Status made = host::copySubvolume(original.get(), above.get(), name); !made) {
      return made;
    }
    const host::Descriptor made = host::openInVolume(above.get(), name);
    if (!made) return Error{errno, path + inner};
    Status below = copyNested(original.get(), made.get(), path + inner + "/", leavesOut, found);
    if (!below) return below;
  }
  return {};
}

}  // namespace

SourceInstant::SourceInstant(host::Descriptor folder, const LeavesOut& leavesOut)
    : live_(std::move(folder)) {
  if (!host::isSubvolumeRoot(live_.get())) return;
  Status done = openPlace();
  if (done) done = make(leavesOut);
  if (done) return;
  error_ = done.error().code;
  remove();
}

SourceInstant::~SourceInstant() { remove(); }

/// Who owns the root of the volume can have put something there: what others can change, or what is
/// no folder, is not touched, and copied as all else.
Status SourceInstant::openPlace() {
  const KeptTime kept(live_.get());
  const int error =
      host::errorOf([&] { return ::mkdirat(live_.get(), kInstantFolder, kPlaceMode); });
  if (error != 0 && error != EEXIST) return Error{error, kInstantFolder};
  host::Descriptor place = host::openInVolume(live_.get(), kInstantFolder);
  if (!place) return Error{errno, kInstantFolder};
  struct stat status {};
  if (::fstat(place.get(), &status) != 0) return Error{errno, kInstantFolder};
  // A root that hands its group down hands down that bit as well.
  const mode_t permissions = status.st_mode & 0777;
  const bool isOwn = status.st_uid == ::geteuid() && permissions == kPlaceMode &&
                     !host::isSubvolumeRoot(place.get());
  if (!isOwn) return Error{EEXIST, kInstantFolder};
  place_ = std::move(place);
  struct stat leftover {};
  if (::fstatat(place_.get(), kInstantName, &leftover, AT_SYMLINK_NOFOLLOW) != 0) return {};
  return host::removeWithSubvolumes(place_.get(), kInstantName);
}

Status SourceInstant::make(const LeavesOut& leavesOut) {
  if (Status made = host::copySubvolume(live_.get(), place_.get(), kInstantName); !made) {
    return made;
  }
  host::Descriptor made = host::openInVolume(place_.get(), kInstantName);
  if (!made) return Error{errno, kInstantName};
  Status nested = copyNested(live_.get(), made.get(), "", leavesOut, hasNested_);
  if (!nested) return nested;
  // A precaution: reading does not even set access times then.
  (void)host::setSubvolumeReadOnly(place_.get(), kInstantName, true);
  instant_ = std::move(made);
  return {};
}

void SourceInstant::remove() {
  instant_.reset();
  if (!place_) return;
  if (host::isSubvolume(place_.get(), kInstantName)) {
    (void)host::removeWithSubvolumes(place_.get(), kInstantName);
  }
  const KeptTime kept(live_.get());
  // Refused as long as something is in it: the next run will remove that.
  (void)::unlinkat(live_.get(), kInstantFolder, AT_REMOVEDIR);
}

}  // namespace halyard::snapwheel
