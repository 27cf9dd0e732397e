// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "base/property_list/builder.h"

#include <algorithm>
#include <array>

#include "base/property_list/scalars.h"

namespace halyard {

namespace {

using Element = PropertyElement;

constexpr std::size_t kDeepest = 512;

bool isBlank(std::string_view text) { return std::ranges::all_of(text, isXmlSpace); }

/// Frequent ones first.
constexpr std::array<std::pair<std::string_view, Element>, 11> kElements = {
    {{"key", Element::key},
     {"string", Element::string},
     {"true", Element::yes},
     {"dict", Element::dictionary},
     {"array", Element::array},
     {"integer", Element::integer},
     {"false", Element::no},
     {"real", Element::real},
     {"date", Element::date},
     {"data", Element::data},
     {"plist", Element::plist}}};

}  // namespace

std::optional<PropertyElement> elementNamed(std::string_view name) {
  for (const auto& [known, element] : kElements) {
    if (known == name) return element;
  }
  return std::nullopt;
}

/// Whether an element may start here; the plist element stands first or nowhere.
bool PropertyListBuilder::mayStand(PropertyElement element) const {
  if (leaf_) return false;
  if (element == Element::plist) return !plistIsOpen_ && open_.empty();
  if (open_.empty()) return !root_ && element != Element::key;
  const Container& container = open_.back();
  if (!container.isDictionary) return element != Element::key;
  return container.key.has_value() == (element != Element::key);
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

std::optional<PropertyValue> PropertyListBuilder::leafValue() {
  switch (*leaf_) {
    case Element::string:
      return PropertyValue(std::move(text_));
    case Element::integer:
      if (const auto integer = parseInteger(text_)) return PropertyValue(*integer);
      return std::nullopt;
    case Element::real:
      if (const auto real = parseReal(text_)) return PropertyValue(*real);
      return std::nullopt;
    case Element::date:
      return PropertyValue::date(std::move(text_));
    case Element::data:
      if (auto bytes = decodeBase64(text_)) return PropertyValue::data(std::move(*bytes));
      return std::nullopt;
    default:
      return PropertyValue(leaf_ == Element::yes);
  }
}

bool PropertyListBuilder::end() {
  if (leaf_) return endLeaf();
  if (!open_.empty()) return endContainer();
  plistIsOpen_ = false;
  return root_.has_value();
}

bool PropertyListBuilder::endLeaf() {
  if (leaf_ == Element::key) {
    open_.back().key = std::move(text_);
  } else {
    auto value = leafValue();
    if (!value) return false;
    place(std::move(*value));
  }
  leaf_.reset();
  return true;
}

/// Gives back what a vector holds for further elements. A large one keeps it: it was never touched,
/// and giving it back would copy the elements.
template <typename T>
void trim(std::vector<T>& elements) {
  constexpr std::size_t kWorthTrimming = std::size_t{1} << 20;
  if (elements.size() * sizeof(T) < kWorthTrimming) elements.shrink_to_fit();
}

bool PropertyListBuilder::endContainer() {
  Container container = std::move(open_.back());
  open_.pop_back();
  if (container.key) return false;
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
    container.entries.emplace_back(std::move(*container.key), std::move(value));
    container.key.reset();
  } else {
    container.array.push_back(std::move(value));
  }
}

}  // namespace halyard
