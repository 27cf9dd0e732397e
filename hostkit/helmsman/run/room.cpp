// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/room.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <set>
#include <utility>

#include "base/text.h"
#include "common/exclusions.h"
#include "common/messages.h"
#include "common/paths.h"
#include "common/sizes.h"
#include "common/tree_size.h"
#include "helmsman/run/expected_services.h"
#include "host/files/descriptor.h"
#include "host/files/files.h"
#include "host/tree/walk_tree.h"
#include "host/volumes/mounting.h"
#include "host/volumes/volume.h"
#include "product/paths.h"

namespace halyard::hostkit {

namespace {

constexpr std::uint64_t kBlock = 512;  // Of st_blocks, whatever the file system's own are.

std::string shortOf(const std::string& what, std::uint64_t needed, const std::string& place,
                    std::uint64_t free) {
  return what + " " + sizeText(needed) + " on " + place + ", which has " + sizeText(free) + " free";
}

// A file without a name where the file system can, so that nothing stays whatever happens.
host::Descriptor openProbe(const std::string& folder) {
  host::Descriptor file(::open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
  if (file || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)) return file;
  std::string name = joinPath(folder, ".helmsman-probe-XXXXXX");
  file = host::Descriptor(::mkostemp(name.data(), O_CLOEXEC));
  if (file) (void)::unlink(name.c_str());
  return file;
}

}  // namespace

RoomVerdict judgeRoom(const RoomFigures& figures) {
  RoomVerdict verdict;
  const std::uint64_t services = figures.services.value_or(0);
  const std::uint64_t volume = figures.volume.value_or(0);
  const bool shared = figures.sameVolume && figures.takesSnapshot;
  if (!shared && services > figures.freeOnRoot) {
    verdict.refusals.push_back(shortOf("the services need", services, "/", figures.freeOnRoot));
  }
  if (!figures.takesSnapshot) return verdict;

  // On one volume the services' data stands in "/.Halyards" and in the snapshot.
  const std::uint64_t copies = shared ? 2 * services : services;
  const std::uint64_t likely = copies + volume;
  const std::uint64_t certain = figures.volumeIsMeasured ? likely : copies;
  verdict.destinationIsShort = likely > figures.freeOnDestination;
  if (certain > figures.freeOnDestination) {
    verdict.refusals.push_back(
        shortOf(figures.volumeIsMeasured ? "the first snapshot needs" : "the services need",
                certain, figures.destination, figures.freeOnDestination));
  } else if (verdict.destinationIsShort) {
    verdict.warnings.push_back(shortOf("a snapshot that copies as much as the last one needs",
                                       likely, figures.destination, figures.freeOnDestination));
  }
  return verdict;
}

std::uint64_t bytesOfVolume(const std::string& mountPoint, const std::string& repository) {
  Exclusions exclusions = Exclusions::defaults();
  if (auto listed = Exclusions::read(kExclusionFile)) exclusions = std::move(*listed);
  std::uint64_t bytes = 0;
  std::set<std::pair<dev_t, ino_t>> linked;
  host::TreeWalk walk;
  walk.visit = [&](const host::WalkedItem& item) {
    const std::string absolute = appendPath(mountPoint, item.path);
    if (absolute == repository || absolute == paths::kMetadataFolder ||
        (!item.path.empty() && exclusions.match(absolute.substr(1)))) {
      return host::WalkStep::passOver;
    }
    const struct stat& status = item.status;
    if (S_ISDIR(status.st_mode) || status.st_nlink == 1 ||
        linked.emplace(status.st_dev, status.st_ino).second) {
      bytes += static_cast<std::uint64_t>(status.st_blocks) * kBlock;
    }
    return host::WalkStep::goOn;
  };
  // As the engine walks it: what a mount hides is copied too. What cannot be looked at is not.
  Result<host::Descriptor> root = host::openWithoutMounts(mountPoint);
  (void)(root ? host::walkTree(host::Location{std::move(*root), "."}, walk)
              : host::walkTree(mountPoint, walk));
  return bytes;
}

std::uint64_t bytesOfListedFiles() {
  std::uint64_t bytes = 0;
  for (const InstalledDescriptor& descriptor : expectedServices().descriptors) {
    for (const std::string& file : descriptor.files()) bytes += treeBytes(file);
  }
  return bytes;
}

bool isOnRootVolume(const std::string& folder) {
  struct stat here {};
  struct stat root {};
  return ::stat(folder.c_str(), &here) == 0 && ::stat("/", &root) == 0 &&
         here.st_dev == root.st_dev;
}

bool mayMakeRoom(const std::vector<std::string>& removable, const std::vector<Snapshot>& snapshots,
                 const std::optional<RunRecord>& last) {
  if (removable.empty() || !last) return false;
  const auto good = last->lastGood.find("");
  if (good == last->lastGood.end()) return false;
  // Snapshots of runs that were not good are younger than the last good run.
  std::string newest;
  for (const Snapshot& snapshot : snapshots) {
    const auto taken = beginOf(snapshot);
    if (snapshot.hasSignature && snapshot.incomplete.empty() && taken &&
        *taken <= good->second.time)
      newest = snapshot.name;
  }
  return std::ranges::all_of(removable,
                             [&newest](const std::string& name) { return name < newest; });
}

std::optional<std::string> writeProblem(const std::string& destination) {
  std::string folder = destination;
  for (const std::string& below :
       {joinPath(destination, std::string(paths::kRepositoryName)), snapshotFolder(destination)}) {
    if (host::isDirectory(below)) folder = below;
  }
  static constexpr std::array<char, 4096> kPage{};
  const host::Descriptor file = openProbe(folder);
  if (file && ::write(file.get(), kPage.data(), kPage.size()) == ssize_t{kPage.size()} &&
      (::fsync(file.get()) == 0 || errno == EINVAL)) {
    return std::nullopt;
  }
  return folder + " cannot be written: " + errnoText(errno == 0 ? ENOSPC : errno);
}

RoomFigures measureRoom(const RoomQuestion& question) {
  RoomFigures figures;
  figures.destination = question.destination;
  figures.takesSnapshot = question.takesSnapshot;
  figures.sameVolume = isOnRootVolume(question.destination);
  measureFree(figures);
  // Halyard copies what is listed, whatever the services say.
  figures.services = std::max(question.estimateBytes, bytesOfListedFiles());
  if (question.isFirst && question.takesSnapshot) {
    const std::string repository =
        joinPath(question.destination, std::string(paths::kRepositoryName));
    std::uint64_t bytes = bytesOfVolume("/", repository);
    for (const std::string& mountPoint : question.furtherVolumes) {
      bytes += bytesOfVolume(mountPoint, repository);
    }
    figures.volume = bytes;
    figures.volumeIsMeasured = true;
  } else if (const auto last = readLastRecord()) {
    figures.volume = last->copiedBytes;
  }
  return figures;
}

void measureFree(RoomFigures& figures) {
  const auto freeBytesOf = [](const std::string& path) {
    const auto volume = host::volumeOf(path);
    return volume ? volume->freeBytes : 0;
  };
  figures.freeOnRoot = freeBytesOf("/");
  figures.freeOnDestination = freeBytesOf(figures.destination);
}

}  // namespace halyard::hostkit
