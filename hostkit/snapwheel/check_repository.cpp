// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/check_repository.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "base/text.h"
#include "common/messages.h"
#include "host/files/descriptor.h"
#include "host/files/files.h"
#include "host/files/system_call.h"
#include "host/tree/walk_tree.h"
#include "product/paths.h"
#include "snapwheel/failure.h"
#include "snapwheel/manifest.h"

namespace halyard::snapwheel {

namespace {

constexpr int kLooks = 4;
constexpr std::chrono::milliseconds kBetweenLooks{300};

class Check {
 public:
  Check(const Repository& repository, CheckDepth depth, const VerifyPart& part)
      : repository_(repository), depth_(depth), part_(part) {}

  CheckReport run() {
    const HostFolderListing listing = repository_.list();
    for (const std::string& name : listing.foreign) {
      problem(repository_.path(name), "was not made by the engine; move it elsewhere");
    }
    for (const std::string& name : listing.inProgress) {
      note(repository_.path(name),
           "is being made or was interrupted; the next snapshot takes it over or removes it");
    }
    for (const std::string& name : listing.snapshots) checkSnapshot(name);
    checkLatest();
    if (depth_ == CheckDepth::contents) checkContents(listing.snapshots);
    return std::move(report_);
  }

 private:
  void problem(const std::string& path, const std::string& text) {
    report_.findings.push_back({Severity::problem, path, text});
  }
  void note(const std::string& path, const std::string& text) {
    report_.findings.push_back({Severity::note, path, text});
  }

  /// What is found of one that is removed meanwhile says nothing.
  void checkSnapshot(const std::string& name) {
    const std::size_t findings = report_.findings.size();
    const std::string path = repository_.path(name);
    lookAt(path);
    if (host::isAbsent(path)) {
      report_.findings.resize(findings);
    } else {
      ++report_.snapshots;
    }
  }

  void lookAt(const std::string& path) {
    const auto manifest = readManifest(path);
    if (!manifest) {
      problem(path, "has no readable manifest; it can still be restored, and be deleted");
    } else if (manifest->finished.empty()) {
      problem(path, "was never finished; delete it");
    } else if (!manifest->complete) {
      noteLack(path, *manifest);
    }
    const std::vector<SnapshotVolume> volumes = volumesOf(path);
    if (volumes.empty()) problem(path, "holds no volume; delete it");
    for (const SnapshotVolume& volume : volumes) checkVolume(path, volume, manifest);
  }

  void checkVolume(const std::string& snapshot, const SnapshotVolume& volume,
                   const std::optional<Manifest>& manifest) {
    const std::string path = volume.path(snapshot);
    if (!volume.isThere) {
      problem(path, "is gone, or no folder: the snapshot does not hold what was at " +
                        volume.mountPoint + " any more");
    } else if (depth_ != CheckDepth::structure) {
      readTree(path, manifest ? itemsOf(*manifest, volume) : 0);
    }
  }

  static std::uint64_t itemsOf(const Manifest& manifest, const SnapshotVolume& volume) {
    const auto record = std::ranges::find(manifest.volumes, volume.folder, &VolumeRecord::folder);
    return record == manifest.volumes.end() ? 0 : record->items;
  }

  void noteLack(const std::string& path, const Manifest& manifest) {
    if (manifest.missingCount != 0 || manifest.tornCount == 0) {
      note(path, "lacks " + std::to_string(manifest.missingCount) +
                     " items that could not be read when it was made");
    }
    for (const std::string& mountPoint : manifest.absentVolumes) {
      note(path, "lacks the volume at " + mountPoint + ", which could not be read then");
    }
    if (manifest.tornCount != 0) {
      note(path, "may hold mixtures: " + std::to_string(manifest.tornCount) +
                     " files changed whenever they were read when it was made");
    }
  }

  /// While a snapshot is being made or removed the link may be a step ahead or behind: only what
  /// stands still is wrong.
  void checkLatest() {
    std::string wrong = whatIsWrongWithLatest();
    for (int look = 1; !wrong.empty() && look < kLooks; ++look) {
      std::this_thread::sleep_for(kBetweenLooks);
      std::string now = whatIsWrongWithLatest();
      if (now != wrong) look = 0;
      wrong = std::move(now);
    }
    if (!wrong.empty()) problem(repository_.path(paths::kLatestName), wrong);
  }

  std::string whatIsWrongWithLatest() const {
    const std::vector<std::string> snapshots = repository_.list().snapshots;
    const auto latest = repository_.latest();
    if (snapshots.empty()) return latest ? "leads nowhere; snapwheel latest removes it" : "";
    if (!latest) return "is missing; snapwheel latest makes it";
    if (*latest == snapshots.back()) return "";
    return "leads to " + *latest + ", but the newest snapshot is " + snapshots.back() +
           "; snapwheel latest moves it";
  }

  void readTree(const std::string& root, std::uint64_t expected, bool readsFiles = false) {
    std::uint64_t items = 0;
    host::TreeWalk walk;
    walk.visit = [&](const host::WalkedItem& item) {
      ++items;
      if (readsFiles && S_ISREG(item.status.st_mode)) readContents(item, root);
      return host::WalkStep::goOn;
    };
    bool isTold = false;
    walk.failed = [&](std::string_view path, int error) {
      isTold = true;
      // The structure of a snapshot was looked at before its contents.
      if (!readsFiles) problem(appendPath(root, path), hostkit::errnoText(error));
    };
    const Status walked = host::walkTree(root, walk);
    if (!walked && !isTold) problem(root, hostkit::errnoText(walked.error().code));
    if (readsFiles) return;
    report_.items += items;
    if (expected != 0 && items != expected) {
      problem(root, "holds " + std::to_string(items) + " items, but its manifest counts " +
                        std::to_string(expected));
    }
  }

  void checkContents(const std::vector<std::string>& snapshots) {
    VerifyReport verified = verifyContents(repository_, snapshots, part_);
    report_.bytesRead = verified.bytesRead;
    for (const VolumeOfSnapshot& volume : verified.withoutDigests) {
      readUncompared(volume);
      note(placeOf(volume),
           "holds no digests to compare its files with; the snapshots after it do");
    }
    for (const VolumeOfSnapshot& volume : verified.damagedIndexes) {
      readUncompared(volume);
      problem(placeOf(volume), "its index is damaged: its files could only be read, not compared");
    }
    if (verified.unproven != 0) {
      note(repository_.hostFolder(),
           "no digest is known of " + std::to_string(verified.unproven) + " files");
    }
    for (const VolumeOfSnapshot& volume : verified.unreadableRecords) {
      problem(placeOf(volume),
              "its record of damaged files cannot be read: no later "
              "snapshot shares its files until check --verify read them all");
    }
    for (const DamagedFile& file : verified.damaged) {
      problem(file.path, file.reason + ", in " + joined(file.snapshots));
    }
    for (const Error& error : verified.unrecorded) {
      problem(error.tried, "the damage could not be recorded, later snapshots may share it: " +
                               hostkit::errnoText(error.code));
    }
    report_.damaged = std::move(verified.damaged);
  }

  /// The snapshot itself, for its first volume.
  std::string placeOf(const VolumeOfSnapshot& volume) const {
    const std::string snapshot = repository_.path(volume.snapshot);
    return volume.volume.isRoot() ? snapshot : volume.volume.path(snapshot);
  }

  void readUncompared(const VolumeOfSnapshot& volume) {
    readTree(volume.volume.path(repository_.path(volume.snapshot)), 0, true);
  }

  void readContents(const host::WalkedItem& item, const std::string& root) {
    const host::Descriptor file(host::uninterrupted([&] {
      return ::openat(item.folder, item.name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    }));
    int error = file ? 0 : errno;
    off_t length = 0;
    while (error == 0) {
      // A hole may be longer than anybody can read.
      const off_t data =
          host::uninterrupted([&] { return ::lseek(file.get(), length, SEEK_DATA); });
      struct stat now {};
      if (data < 0 && errno == ENXIO && ::fstat(file.get(), &now) == 0) {
        length = std::max(length, now.st_size);
        break;
      }
      length = std::max(length, data);
      const ssize_t piece = host::uninterrupted(
          [&] { return ::pread(file.get(), buffer_.data(), buffer_.size(), length); });
      if (piece < 0) error = errno;
      if (piece <= 0) break;
      length += piece;
      report_.bytesRead += static_cast<std::uint64_t>(piece);
    }
    if (error != 0) {
      problem(appendPath(root, item.path), hostkit::errnoText(error));
    } else if (length != item.status.st_size) {
      problem(appendPath(root, item.path), "ends early");
    }
  }

  static std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
    return text;
  }

  const Repository& repository_;
  CheckDepth depth_;
  VerifyPart part_;
  CheckReport report_;
  std::vector<char> buffer_ = std::vector<char>(std::size_t{1} << 20);
};

}  // namespace

CheckReport checkRepository(const Repository& repository, CheckDepth depth,
                            const VerifyPart& part) {
  return Check(repository, depth, part).run();
}

}  // namespace halyard::snapwheel
