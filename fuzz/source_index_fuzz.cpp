// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// An index with a digest that is right, whatever else it holds: the walk through it comes to its
// end, and every look-up finds what the walk has seen.
#include <sys/stat.h>

#include <array>
#include <cstring>
#include <vector>

#include "scratch_folder.h"
#include "snapwheel/source_index.h"

using halyard::fuzz::expect;
using halyard::snapwheel::SourceIndex;

namespace {

struct Header {
  char magic[8];
  std::uint64_t length;
  std::array<char, 16> rest;  ///< Where the root stands, the identity's length, the root's flags.
  halyard::host::ContentDigest digest;
};
constexpr std::size_t kGiven = 1 + sizeof(Header::rest);

/// The first byte chooses the format, the next ones are the rest of the header; then comes what
/// follows it.
std::string indexOf(const std::uint8_t* bytes, std::size_t size) {
  Header header{};
  std::memcpy(header.magic, bytes[0] % 2 == 0 ? "SWINDEX2" : "SWINDEX3", sizeof header.magic);
  std::memcpy(header.rest.data(), bytes + 1, sizeof header.rest);
  header.length = sizeof header + size - kGiven;
  halyard::snapwheel::Digester digester;
  digester.begin();
  digester.add(bytes + kGiven, size - kGiven);
  header.digest = digester.digest();
  std::string file(reinterpret_cast<const char*>(&header), sizeof header);
  return file.append(reinterpret_cast<const char*>(bytes) + kGiven, size - kGiven);
}

void walk(const SourceIndex& index, std::size_t most) {
  std::vector<SourceIndex::Folder> open = {index.root()};
  std::size_t entries = 0;
  while (!open.empty()) {
    SourceIndex::Folder folder = std::move(open.back());
    open.pop_back();
    for (const auto& entry : folder.entries()) {
      expect(++entries <= most, "an index lists no more than it has room for");
      const std::string name(folder.nameOf(entry));
      (void)index.flagsOf(entry);
      const auto* const named = folder.find(name.c_str());
      expect(named == nullptr || folder.nameOf(*named) == name, "a name finds an entry of it");
      const auto* const found = folder.find(entry.inode, name.c_str());
      expect(found == nullptr || found->inode == entry.inode, "an inode finds an entry of it");
      const auto place = index.findAnywhere(entry.inode);
      if (S_ISREG(entry.mode)) {
        expect(place && place->entry->inode == entry.inode, "every file is found by its inode");
      }
      open.push_back(index.below(entry));
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  static const halyard::fuzz::ScratchFolder folder;
  if (size < kGiven) return 0;
  const std::string file = indexOf(bytes, size);
  const std::string path = folder.write("index", file);
  (void)SourceIndex::isDamaged(path);
  if (const auto index = SourceIndex::open(path)) walk(*index, file.size());
  // As it comes, too.
  (void)folder.write("index", {reinterpret_cast<const char*>(bytes), size});
  if (const auto index = SourceIndex::open(path, "identity")) walk(*index, size);
  return 0;
}
