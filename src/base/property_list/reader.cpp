// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <expat.h>

#include <algorithm>
#include <type_traits>

#include "base/property_list.h"
#include "base/property_list/builder.h"
#include "base/property_list/scalars.h"

namespace halyard {

namespace {

/// Bytes given to expat at a time: it keeps a copy of what it is given.
constexpr std::size_t kPiece = std::size_t{64} << 10;
/// A tag or comment beyond this is refused: a single tag of megabytes of attributes keeps expat
/// busy for many seconds. Texts may have any length.
constexpr std::size_t kLongestToken = std::size_t{1} << 20;

/// Drives expat over a text and stops it at the first thing that is refused.
class Reader {
 public:
  explicit Reader(std::string_view text);

  std::optional<PropertyValue> read();

 private:
  static Reader& self(void* data) { return *static_cast<Reader*>(data); }
  static void onStart(void* data, const XML_Char* name, const XML_Char** attributes);
  static void onEnd(void* data, const XML_Char* name);
  static void onCharacters(void* data, const XML_Char* text, int length);
  static void onComment(void* data, const XML_Char* text);
  static void onInstruction(void* data, const XML_Char* target, const XML_Char* text);
  static void onDoctype(void* data, const XML_Char* name, const XML_Char* system,
                        const XML_Char* publicName, int hasInternalSubset);
  static void onSkippedEntity(void* data, const XML_Char* name, int isParameter);

  bool feed();
  void countEvent(bool allowed);
  bool hasReferenceInTag() const;
  bool isBlankAfterTag() const;
  std::size_t position() const;

  std::string_view text_;
  std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)> parser_;
  PropertyListBuilder builder_;
  std::size_t events_ = 0;
  bool refused_ = false;
};

std::string_view withoutLead(std::string_view text) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  while (!text.empty() && isXmlSpace(text.front())) text.remove_prefix(1);
  return text;
}

/// Whether the text begins as a list in UTF-8 does. Only the first two bytes make expat take a text
/// for UTF-16, whatever encoding it is told.
bool beginsAsUtf8(std::string_view text) {
  return text.size() > 1 && text[0] == '<' && text[1] != '\0';
}

// The encoding that a document declares is not followed: every list is UTF-8.
Reader::Reader(std::string_view text)
    : text_(withoutLead(text)), parser_(XML_ParserCreate("UTF-8"), &XML_ParserFree) {
  if (!parser_) return;
  XML_SetUserData(parser_.get(), this);
  XML_SetElementHandler(parser_.get(), onStart, onEnd);
  XML_SetCharacterDataHandler(parser_.get(), onCharacters);
  XML_SetCommentHandler(parser_.get(), onComment);
  XML_SetProcessingInstructionHandler(parser_.get(), onInstruction);
  XML_SetStartDoctypeDeclHandler(parser_.get(), onDoctype);
  XML_SetSkippedEntityHandler(parser_.get(), onSkippedEntity);
}

std::optional<PropertyValue> Reader::read() {
  if (!parser_ || !beginsAsUtf8(text_) || !feed()) return std::nullopt;
  return builder_.takeRoot();
}

/// Whether all of the text is a list.
bool Reader::feed() {
  std::size_t length = kPiece;
  std::size_t silent = 0;  // bytes since the latest event
  for (std::string_view rest = text_; !builder_.isComplete();) {
    const std::string_view piece = rest.substr(0, length);
    rest.remove_prefix(piece.size());
    const std::size_t eventsBefore = events_;
    if (XML_Parse(parser_.get(), piece.data(), static_cast<int>(piece.size()),
                  rest.empty() ? 1 : 0) != XML_STATUS_OK) {
      return false;
    }
    silent = events_ == eventsBefore ? silent + piece.size() : 0;
    if (silent > kLongestToken) return false;
    // What is not yet complete is scanned from its start each time, so the pieces grow with it.
    length = silent == 0 ? kPiece : 2 * length;
  }
  return !refused_;
}

void Reader::countEvent(bool allowed) {
  ++events_;
  if (allowed) return;
  refused_ = true;
  XML_StopParser(parser_.get(), XML_FALSE);
}

std::size_t Reader::position() const {
  return std::min(static_cast<std::size_t>(XML_GetCurrentByteIndex(parser_.get())), text_.size());
}

/// Whether an entity or character reference stands in the start tag that is being reported: an
/// unknown entity in an attribute would go unreported.
bool Reader::hasReferenceInTag() const {
  const auto length = static_cast<std::size_t>(XML_GetCurrentByteCount(parser_.get()));
  return text_.substr(position(), length).find('&') != std::string_view::npos;
}

/// Whether nothing but white space follows the end tag that is being reported.
bool Reader::isBlankAfterTag() const {
  const auto length = static_cast<std::size_t>(XML_GetCurrentByteCount(parser_.get()));
  const std::string_view rest = text_.substr(std::min(position() + length, text_.size()));
  return std::ranges::all_of(rest, isXmlSpace);
}

void Reader::onStart(void* data, const XML_Char* name, const XML_Char** attributes) {
  Reader& reader = self(data);
  if (reader.refused_) return;
  const auto element = elementNamed(name);
  reader.countEvent(element && reader.builder_.start(*element) &&
                    (attributes[0] == nullptr || !reader.hasReferenceInTag()));
}

void Reader::onEnd(void* data, const XML_Char* /*name*/) {
  Reader& reader = self(data);
  if (reader.refused_) return;  // An empty element ends even when its start was refused.
  reader.countEvent(reader.builder_.end() &&
                    (!reader.builder_.isComplete() || reader.isBlankAfterTag()));
}

void Reader::onCharacters(void* data, const XML_Char* text, int length) {
  Reader& reader = self(data);
  if (reader.refused_) return;
  reader.countEvent(reader.builder_.characters({text, static_cast<std::size_t>(length)}));
}

void Reader::onComment(void* data, const XML_Char* /*text*/) { self(data).countEvent(true); }

void Reader::onInstruction(void* data, const XML_Char* /*target*/, const XML_Char* /*text*/) {
  self(data).countEvent(true);
}

void Reader::onDoctype(void* data, const XML_Char* /*name*/, const XML_Char* /*system*/,
                       const XML_Char* /*publicName*/, int hasInternalSubset) {
  self(data).countEvent(hasInternalSubset == 0);
}

void Reader::onSkippedEntity(void* data, const XML_Char* /*name*/, int /*isParameter*/) {
  self(data).countEvent(false);
}

}  // namespace

std::optional<PropertyValue> parsePropertyList(std::string_view text) {
  if (text.size() > kBrowseDataLimit) return std::nullopt;
  return Reader(text).read();
}

std::optional<PropertyDictionary> parseDictionary(std::string_view text) {
  auto root = parsePropertyList(text);
  return root ? std::move(*root).takeDictionary() : std::nullopt;
}

}  // namespace halyard
