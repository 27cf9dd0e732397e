// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Times the property-list reader against a bare expat pass over the same text, and measures the
// memory that reading, parsing and writing a file take.
//
//   property_list_bench [MEBIBYTES [NAME]]      size of each text, by default 100; only the shapes
//                                               with NAME in their name
//
// A line for each shape of list; "bare" is expat with three handlers that do nothing. Times are
// processor seconds, the least of three passes that take turns. Memory is the peak of a process
// that reads the file, parses it and writes it to another one, as a multiple of the file. Ends with
// 1 when a shape takes more than three bare passes or six times its file.
#include <expat.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>

#include "base/property_list.h"
#include "host/files/files.h"
#include "host/files/property_file.h"

namespace {

using halyard::parsePropertyList;

constexpr double kMostPasses = 3;
constexpr double kMostMemory = 6;

struct Shape {
  std::string name;
  std::string open;
  std::function<std::string(std::size_t)> item;  // of a number
  std::string close;
};

std::function<std::string(std::size_t)> always(std::string text) {
  return [text = std::move(text)](std::size_t) { return text; };
}

std::function<std::string(std::size_t)> keyed(std::string value) {
  return [value = std::move(value)](std::size_t number) {
    return "<key>k" + std::to_string(number) + "</key>" + value;
  };
}

std::vector<Shape> shapes() {
  const std::string entry =
      "\t<dict>\n\t\t<key>name</key>\n\t\t<string>somebody</string>\n\t\t<key>path</key>\n"
      "\t\t<string>/var/lib/depot/data/folder/4F2C0D6E</string>\n\t\t<key>size</key>\n"
      "\t\t<integer>12345</integer>\n\t\t<key>on</key>\n\t\t<true/>\n\t</dict>\n";
  return {
      {"usual entries, indented", "<array>\n", always(entry), "</array>"},
      {"array of <true/>", "<array>", always("<true/>"), "</array>"},
      {"array of short strings", "<array>", always("<string>a</string>"), "</array>"},
      {"array of small arrays", "<array>", always("<array><true/></array>"), "</array>"},
      {"array of small dictionaries", "<array>",
       always("<dict><key>name</key><string>a</string></dict>"), "</array>"},
      {"dictionary of <true/>", "<dict>", keyed("<true/>"), "</dict>"},
      {"dictionary of short strings", "<dict>", keyed("<string>a</string>"), "</dict>"},
      {"one string of lines", "<string>", always("a line of some text in a string\n"), "</string>"},
      {"one string of &amp;", "<string>", always("&amp;"), "</string>"},
      {"strings of 4 KiB", "<array>", always("<string>" + std::string(4096, 'x') + "</string>"),
       "</array>"},
  };
}

std::string textOf(const Shape& shape, std::size_t size) {
  std::string text = "<plist version=\"1.0\">" + shape.open;
  text.reserve(size + 8192);
  for (std::size_t number = 0; text.size() < size; ++number) text += shape.item(number);
  return text + shape.close + "</plist>\n";
}

void barePass(const std::string& text) {
  constexpr std::size_t kPiece = 65536;
  const XML_Parser parser = XML_ParserCreate("UTF-8");
  XML_SetElementHandler(
      parser, [](void*, const XML_Char*, const XML_Char**) {}, [](void*, const XML_Char*) {});
  XML_SetCharacterDataHandler(parser, [](void*, const XML_Char*, int) {});
  for (std::size_t i = 0; i < text.size(); i += kPiece) {
    const std::size_t length = std::min(kPiece, text.size() - i);
    const int isLast = i + length == text.size() ? 1 : 0;
    if (XML_Parse(parser, text.data() + i, static_cast<int>(length), isLast) != XML_STATUS_OK) {
      std::abort();
    }
  }
  XML_ParserFree(parser);
}

template <typename Call>
double secondsOf(Call call) {
  const std::clock_t start = std::clock();
  call();
  return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

/// Peak memory in bytes of a process of its own that does the call; -1 when the call fails. What
/// this process has counts for it too: it inherits that.
double peakOf(const std::function<bool()>& call) {
  const pid_t child = fork();
  if (child == 0) _exit(call() ? 0 : 1);
  int status = 0;
  rusage usage{};
  if (child < 0 || wait4(child, &status, 0, &usage) != child || status != 0) return -1;
  return static_cast<double>(usage.ru_maxrss) * 1024;
}

bool copyList(const std::string& from, const std::string& to) {
  auto text = halyard::host::readFile(from, halyard::kBrowseDataLimit);
  if (!text) return false;
  const auto root = parsePropertyList(*text);
  text.reset();
  if (!root) return false;
  std::ofstream file(to, std::ios::binary);
  halyard::writePropertyList(*root, [&file](std::string_view piece) { file << piece; });
  return file.good();
}

/// The factor of memory; the file is gone before the next one is written.
double memoryOf(const Shape& shape, std::size_t size, const std::string& folder) {
  const std::string from = folder + "/from.plist";
  const std::string to = folder + "/to.plist";
  // In a child too, so that the text does not count for the one that is measured.
  (void)peakOf([&] { return bool(std::ofstream(from, std::ios::binary) << textOf(shape, size)); });
  const auto fileSize = static_cast<double>(std::filesystem::file_size(from));
  const double peak = peakOf([&] { return copyList(from, to); });
  std::filesystem::remove(from);
  std::filesystem::remove(to);
  return peak < 0 ? -1 : peak / fileSize;
}

bool measure(const Shape& shape, std::size_t size, const std::string& folder) {
  const double memory = memoryOf(shape, size, folder);
  const std::string text = textOf(shape, size);
  double bare = 1e9;
  double ours = 1e9;
  for (int i = 0; i < 3; ++i) {
    bare = std::min(bare, secondsOf([&] { barePass(text); }));
    ours = std::min(ours, secondsOf([&] {
                      if (!parsePropertyList(text)) std::abort();
                    }));
  }
  std::printf("%-28s bare %6.3f s   read %6.3f s = %4.2f passes   memory %4.2f times the file\n",
              shape.name.c_str(), bare, ours, ours / bare, memory);
  (void)std::fflush(stdout);
  return ours <= kMostPasses * bare && memory > 0 && memory <= kMostMemory;
}

/// In a process of its own: what one shape leaves in memory does not count for the next one.
bool measureAlone(const Shape& shape, std::size_t size, const std::string& folder) {
  return peakOf([&] { return measure(shape, size, folder); }) >= 0;
}

void measureKeys(std::size_t count) {
  std::string text = "<dict>";
  for (std::size_t i = 0; i < count; ++i) text += keyed("<true/>")(i);
  text += "</dict>";
  std::optional<halyard::PropertyValue> root;
  const double read = secondsOf([&] { root = parsePropertyList(text); });
  std::size_t found = 0;
  const double search = secondsOf([&] {
    for (std::size_t i = 0; i < count; ++i) {
      found += root->asDictionary()->find("k" + std::to_string(i)) != nullptr ? 1 : 0;
    }
  });
  const auto each = 1e9 / static_cast<double>(count);
  std::printf("%8zu keys: read %4.0f ns a key, search %4.0f ns a key, %zu found\n", count,
              read * each, search * each, found);
}

void measureDepth(std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += "<array>";
  for (std::size_t i = 0; i < count; ++i) text += "</array>";
  bool isAbsent = false;
  const double seconds = secondsOf([&] { isAbsent = !parsePropertyList(text); });
  std::printf("%8zu nested arrays: %s after %.4f s\n", count, isAbsent ? "refused" : "read",
              seconds);
}

}  // namespace

int main(int count, char** words) {
  const std::size_t size = std::strtoul(count > 1 ? words[1] : "100", nullptr, 10) << 20;
  const std::string part = count > 2 ? words[2] : "";
  std::string folder = (std::filesystem::temp_directory_path() / "plist-bench-XXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr) return 1;
  bool isGood = true;
  for (const Shape& shape : shapes()) {
    if (shape.name.find(part) != std::string::npos) {
      isGood = measureAlone(shape, size, folder) && isGood;
    }
  }
  std::filesystem::remove(folder);
  for (const std::size_t keys : {1000UL, 10000UL, 100000UL, 1000000UL}) measureKeys(keys);
  for (const std::size_t levels : {512UL, 513UL, 1000000UL}) measureDepth(levels);
  return isGood ? 0 : 1;
}
