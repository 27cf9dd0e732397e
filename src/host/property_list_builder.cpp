#include "host/property_list_builder.h"

#include <algorithm>
#include <array>

#include "host/property_scalars.h"

namespace halyard::host {

namespace {

using Element = PropertyElement;

constexpr std::size_t kDeepest = 512;
/// Texts and arrays beyond this many bytes keep their spare room: it was never touched, and giving
/// it back would copy them.
constexpr std::size_t kWorthTrimming = std::size_t{1} << 20;

bool isBlank(std::string_view text) { return std::ranges::all_of(text, isXmlSpace); }

}  // namespace

std::optional<PropertyElement> elementNamed(std::string_view name) {
  using Row = std::pair<std::string_view, Element>;
  static constexpr std::array<Row, 11> kElements{{
      {"key", Element::key},
      {"string", Element::string},
      {"dict", Element::dictionary},
      {"array", Element::array},
      {"integer", Element::integer},
      {"true", Element::yes},
      {"false", Element::no},
      {"data", Element::data},
      {"date", Element::date},
      {"real", Element::real},
      {"plist", Element::plist},
  }};
  const auto row = std::ranges::find(kElements, name, &Row::first);
  return row == kElements.end() ? std::nullopt : std::optional(row->second);
}

/// Whether an element may start here; the plist element stands first or nowhere.
bool PropertyListBuilder::mayStand(PropertyElement element) const {
  if (leafIsOpen_) return false;
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
    leafIsOpen_ = true;
    leafHasText_ = element != Element::yes && element != Element::no;
    text_.clear();
  }
  return true;
}

bool PropertyListBuilder::characters(std::string_view text) {
  if (!leafIsOpen_ || !leafHasText_) return isBlank(text);
  text_ += text;
  return true;
}

std::string PropertyListBuilder::takeText() {
  return text_.size() < kWorthTrimming ? std::string(text_) : std::move(text_);
}

std::optional<PropertyValue> PropertyListBuilder::leafValue(PropertyElement element) {
  switch (element) {
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
      return PropertyValue(element == Element::yes);
  }
}

bool PropertyListBuilder::end(PropertyElement element) {
  if (element == Element::plist) {
    plistIsOpen_ = false;
    return root_.has_value();
  }
  if (!leafIsOpen_) return endContainer();
  leafIsOpen_ = false;
  if (element == Element::key) {
    open_.back().key = takeText();
    open_.back().hasKey = true;
    return true;
  }
  auto value = leafValue(element);
  if (!value) return false;
  place(std::move(*value));
  return true;
}

bool PropertyListBuilder::endContainer() {
  Container& container = open_.back();
  if (container.hasKey) return false;
  PropertyValue value;
  if (container.isDictionary) {
    container.dictionary.trim();
    value = std::move(container.dictionary);
  } else {
    if (container.array.size() * sizeof(PropertyValue) < kWorthTrimming) {
      container.array.shrink_to_fit();
    }
    value = std::move(container.array);
  }
  open_.pop_back();
  place(std::move(value));
  return true;
}

void PropertyListBuilder::place(PropertyValue value) {
  if (open_.empty()) {
    root_ = std::move(value);
    return;
  }
  Container& container = open_.back();
  if (container.isDictionary) {
    container.dictionary.set(std::move(container.key), std::move(value));
    container.hasKey = false;
  } else {
    container.array.push_back(std::move(value));
  }
}

}  // namespace halyard::host
