// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A list of what is left out, and behind a NUL paths to ask it about: what is handed over is never
// left out, the same list gives the same answers, and equal fingerprints mean equal answers.
#include <cstdint>

#include "base/text.h"
#include "common/exclusions.h"
#include "expect.h"

using halyard::fuzz::expect;
using halyard::hostkit::Exclusions;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(bytes), size);
  const std::size_t end = text.find('\0');
  const std::string_view list = text.substr(0, end);
  const std::string_view paths = end == std::string_view::npos ? "" : text.substr(end + 1);
  const Exclusions all = Exclusions::parse(list);
  Exclusions added = Exclusions::parse("");
  for (const std::string_view line : halyard::splitAt(list, '\n')) added.add(line);
  for (const std::string_view path : halyard::splitAt(paths, '\0')) {
    const bool leftOut = all.match(path);
    expect(leftOut == all.match(path), "the same question has the same answer");
    if (all.fingerprint() == added.fingerprint()) {
      expect(leftOut == added.match(path), "equal fingerprints mean equal answers");
    }
    expect(!all.match(".Halyards") && !all.match(".Halyards/" + std::string(path)),
           "what is handed over is never left out");
    Exclusions own = all;
    own.addPath(path);
    expect(path.empty() || own.match(path) || path.starts_with(".Halyards"),
           "a path that was added is left out");
  }
  return 0;
}
