// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <algorithm>
#include <utility>
#include <vector>

#include "base/property_list.h"
#include "base/property_list/scalars.h"

namespace halyard {

namespace {

using Kind = PropertyValue::Kind;

constexpr std::size_t kPiece = std::size_t{64} << 10;
/// Indentation stops here, so that the text of deep lists stays in proportion to them.
constexpr std::size_t kDeepestIndent = 32;
constexpr std::size_t kDataBytesPerLine = 57;  // 76 characters of base64

constexpr std::string_view kHeader =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist>\n"
    "<plist version=\"1.0\">\n";
constexpr std::string_view kFooter = "</plist>\n";
constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD

/// Writes one list; an explicit stack stands for the containers that are open.
class Writer {
 public:
  explicit Writer(const PropertyListSink& sink) : sink_(sink) {}

  void write(const PropertyValue& value) {
    begin();
    writeValue(value);
    finish();
  }

  void write(const PropertyDictionary& dictionary) {
    begin();
    openDictionary(dictionary);
    finish();
  }

  /// The same entry by entry: begin, then each entry of the root, then finish.
  void begin();
  void writeRootEntry(const std::string& key, const PropertyValue& value);
  void finishRoot();

 private:
  using EntryIterator = std::vector<PropertyDictionary::Entry>::const_iterator;
  struct Open {
    bool isDictionary;
    EntryIterator entry, lastEntry;
    PropertyArray::const_iterator element, lastElement;
  };

  void finish();
  void step();
  void writeValue(const PropertyValue& value);
  void writeData(std::string_view bytes);
  void writeElement(std::string_view name, std::string_view text);
  void openDictionary(const PropertyDictionary& dictionary);
  void openArray(const PropertyArray& array);
  void indent();
  void append(std::string_view text);
  void appendEscaped(std::string_view text);
  std::string_view appendSpecial(std::string_view text);

  const PropertyListSink& sink_;
  std::string piece_;
  std::vector<Open> open_;
};

void Writer::begin() {
  piece_.reserve(kPiece);
  append(kHeader);
}

void Writer::finish() {
  while (!open_.empty()) step();
  append(kFooter);
  sink_(piece_);
}

void Writer::writeRootEntry(const std::string& key, const PropertyValue& value) {
  if (open_.empty()) {
    append("<dict>\n");
    open_.push_back({true, {}, {}, {}, {}});  // nothing to step through: it ends at finish()
  }
  writeElement("key", key);
  writeValue(value);
  while (open_.size() > 1) step();
}

void Writer::finishRoot() {
  if (open_.empty()) append("<dict/>\n");
  finish();
}

/// Writes the next item of the innermost container, or its end.
void Writer::step() {
  Open& open = open_.back();
  if (open.isDictionary) {
    if (open.entry != open.lastEntry) {
      const auto& [key, value] = *open.entry++;
      writeElement("key", key);
      writeValue(value);
      return;
    }
  } else if (open.element != open.lastElement) {
    writeValue(*open.element++);
    return;
  }
  const bool isDictionary = open.isDictionary;
  open_.pop_back();
  indent();
  append(isDictionary ? "</dict>\n" : "</array>\n");
}

void Writer::writeValue(const PropertyValue& value) {
  switch (value.kind()) {
    case Kind::dictionary:
      return openDictionary(*value.asDictionary());
    case Kind::array:
      return openArray(*value.asArray());
    case Kind::string:
      return writeElement("string", *value.asString());
    case Kind::integer:
      return writeElement("integer", std::to_string(*value.asInteger()));
    case Kind::real:
      return writeElement("real", realText(*value.asReal()));
    case Kind::date:
      return writeElement("date", *value.asDate());
    case Kind::data:
      return writeData(*value.asData());
    case Kind::boolean:
      indent();
      return append(*value.asBoolean() ? "<true/>\n" : "<false/>\n");
  }
}

void Writer::openDictionary(const PropertyDictionary& dictionary) {
  indent();
  if (dictionary.empty()) return append("<dict/>\n");
  append("<dict>\n");
  open_.push_back({true, dictionary.begin(), dictionary.end(), {}, {}});
}

void Writer::openArray(const PropertyArray& array) {
  indent();
  if (array.empty()) return append("<array/>\n");
  append("<array>\n");
  open_.push_back({false, {}, {}, array.begin(), array.end()});
}

void Writer::writeElement(std::string_view name, std::string_view text) {
  indent();
  append("<");
  append(name);
  append(">");
  appendEscaped(text);
  append("</");
  append(name);
  append(">\n");
}

void Writer::writeData(std::string_view bytes) {
  indent();
  append("<data>\n");
  std::string line;
  while (!bytes.empty()) {
    line.clear();
    appendBase64(bytes.substr(0, kDataBytesPerLine), line);
    bytes.remove_prefix(std::min(bytes.size(), kDataBytesPerLine));
    indent();
    append(line);
    append("\n");
  }
  indent();
  append("</data>\n");
}

void Writer::indent() {
  constexpr std::string_view kTabs =
      "\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t";
  static_assert(kTabs.size() == kDeepestIndent);
  append(kTabs.substr(0, open_.size()));
}

void Writer::append(std::string_view text) {
  while (piece_.size() + text.size() > kPiece) {
    const std::size_t room = kPiece - piece_.size();
    piece_ += text.substr(0, room);
    text.remove_prefix(room);
    sink_(piece_);
    piece_.clear();
  }
  piece_ += text;
}

/// Whether a byte stands for itself wherever it is.
bool isPlain(char c) {
  const auto byte = static_cast<unsigned char>(c);
  if (byte < 0x20) return c == '\t' || c == '\n';
  return byte < 0x80 && c != '&' && c != '<' && c != '>';
}

void Writer::appendEscaped(std::string_view text) {
  while (!text.empty()) {
    const auto special = std::ranges::find_if_not(text, isPlain);
    const auto plain = static_cast<std::size_t>(special - text.begin());
    append(text.substr(0, plain));
    text.remove_prefix(plain);
    if (!text.empty()) text = appendSpecial(text);
  }
}

/// Writes the first character, which is not plain; gives back what follows it.
std::string_view Writer::appendSpecial(std::string_view text) {
  const std::size_t length = utf8SequenceLength(text);
  const std::string_view character = text.substr(0, std::max<std::size_t>(length, 1));
  if (character == "&") {
    append("&amp;");
  } else if (character == "<") {
    append("&lt;");
  } else if (character == ">") {
    append("&gt;");
  } else if (character == "\r") {
    append("&#13;");  // A bare one would be read as a line feed.
  } else if (length < 2 || character == "\xEF\xBF\xBE" || character == "\xEF\xBF\xBF") {
    append(kReplacement);
  } else {
    append(character);
  }
  return text.substr(character.size());
}

template <typename Root>
std::string writtenText(const Root& root) {
  std::string text;
  writePropertyList(root, [&](std::string_view piece) { text += piece; });
  return text;
}

}  // namespace

void writePropertyList(const PropertyValue& value, const PropertyListSink& sink) {
  Writer(sink).write(value);
}

void writePropertyList(const PropertyDictionary& dictionary, const PropertyListSink& sink) {
  Writer(sink).write(dictionary);
}

std::string writePropertyList(const PropertyValue& value) { return writtenText(value); }

std::string writePropertyList(const PropertyDictionary& dictionary) {
  return writtenText(dictionary);
}

struct DictionaryWriter::Implementation {
  PropertyListSink sink;
  Writer writer{sink};
};

DictionaryWriter::DictionaryWriter(PropertyListSink sink)
    : implementation_(new Implementation{.sink = std::move(sink)}) {
  implementation_->writer.begin();
}

DictionaryWriter::~DictionaryWriter() = default;

void DictionaryWriter::entry(const std::string& key, const PropertyValue& value) {
  implementation_->writer.writeRootEntry(key, value);
}

void DictionaryWriter::finish() { implementation_->writer.finishRoot(); }

}  // namespace halyard
