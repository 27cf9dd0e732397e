// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "base/property_list/builder.h"

#include <algorithm>

#include "base/property_list/scalars.h"

namespace halyard {

namespace {

using Element = PropertyElement;

constexpr std::size_t kDeepest = 512;
/// Texts and arrays beyond this many bytes keep their spare room: it was never touched, and giving
/// it back would copy them.
constexpr std::size_t kWorthTrimming = std::size_t{1} << 20;

bool isBlank(std::string_view text) { return std::ranges::all_of(text, isXmlSpace); }

/// A name of at most seven letters as one number, 0 for a longer one: half of a list is names.
constexpr std::uint64_t packed(std::string_view name) {
  if (name.size() > 7) return 0;
  std::uint64_t number = name.size();
  for (const char c : name) number = number << 8 | static_cast<unsigned char>(c);
  return number;
}

}  // namespace

std::optional<PropertyElement> elementNamed(std::string_view name) {
  switch (packed(name)) {
    case packed("plist"):
      return Element::plist;
    case packed("dict"):
      return Element::dictionary;
    case packed("array"):
      return Element::array;
    case packed("key"):
      return Element::key;
    case packed("string"):
      return Element::string;
    case packed("integer"):
      return Element::integer;
    case packed("real"):
      return Element::real;
    case packed("true"):
      return Element::yes;
    case packed("false"):
      return Element::no;
    case packed("date"):
      return Element::date;
    case packed("data"):
      return Element::data;
    default:
      return std::nullopt;
  }
}

/// Whether an element may start here; the plist element stands first or nowhere.
bool PropertyListBuilder::mayStand(PropertyElement element) const {
  if (leaf_) return false;
  if (element == Element::plist) return !plistIsOpen_ && open_.empty();
  if (open_.empty()) return !root_ && element != Element::key;
  const Container& container = open_.back();
  if (!container.isDictionary) return element != Element::key;
  return container.hasKey == (element != Element::key);
}

bool PropertyListBuilder::start(PropertyElement element) {
  if (!mayStand(element)) return false;
  if (element == Element::plist) {
    plistIsOpen_ = true;
  } else if (element == Element::dictionary || element == Element::array) {
    if (open_.size() == kDeepest) return false;
    open_.emplace_back().isDictionary = element == Element::dictionary;
  } else {
    leaf_ = element;
    text_.clear();
  }
  return true;
}

bool PropertyListBuilder::characters(std::string_view text) {
  if (!leaf_ || leaf_ == Element::yes || leaf_ == Element::no) return isBlank(text);
  text_ += text;
  return true;
}

std::string PropertyListBuilder::takeText() {
  return text_.size() < kWorthTrimming ? std::string(text_) : std::move(text_);
}

std::optional<PropertyValue> PropertyListBuilder::leafValue() {
  switch (*leaf_) {
    case Element::string:
      return PropertyValue(takeText());
    case Element::integer:
      if (const auto integer = parseInteger(text_)) return PropertyValue(*integer);
      return std::nullopt;
    case Element::real:
      if (const auto real = parseReal(text_)) return PropertyValue(*real);
      return std::nullopt;
    case Element::date:
      return PropertyValue::date(takeText());
    case Element::data:
      if (auto bytes = decodeBase64(text_)) return PropertyValue::data(std::move(*bytes));
      return std::nullopt;
    default:
      return PropertyValue(leaf_ == Element::yes);
  }
}

bool PropertyListBuilder::end() {
  if (leaf_) {
    if (!endLeaf()) return false;
  } else if (!open_.empty()) {
    if (!endContainer()) return false;
  } else {
    plistIsOpen_ = false;
  }
  isComplete_ = !plistIsOpen_ && open_.empty();
  return !isComplete_ || root_;
}

bool PropertyListBuilder::endLeaf() {
  if (leaf_ == Element::key) {
    open_.back().key = takeText();
    open_.back().hasKey = true;
  } else {
    auto value = leafValue();
    if (!value) return false;
    place(std::move(*value));
  }
  leaf_.reset();
  return true;
}

/// Gives back what a vector holds for further elements, where that is worth a copy.
template <typename T>
void trim(std::vector<T>& elements) {
  if (elements.size() * sizeof(T) < kWorthTrimming) elements.shrink_to_fit();
}

bool PropertyListBuilder::endContainer() {
  Container container = std::move(open_.back());
  open_.pop_back();
  if (container.hasKey) return false;
  if (container.isDictionary) {
    trim(container.entries);
    place(PropertyDictionary(std::move(container.entries)));
  } else {
    trim(container.array);
    place(std::move(container.array));
  }
  return true;
}

void PropertyListBuilder::place(PropertyValue&& value) {
  if (open_.empty()) {
    root_ = std::move(value);
    return;
  }
  Container& container = open_.back();
  if (container.isDictionary) {
    container.entries.emplace_back(std::move(container.key), std::move(value));
    container.hasKey = false;
  } else {
    container.array.push_back(std::move(value));
  }
}

}  // namespace halyard
