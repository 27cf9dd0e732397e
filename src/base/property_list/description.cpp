// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <algorithm>
#include <vector>

#include "base/property_list.h"
#include "base/property_list/scalars.h"

namespace halyard {

namespace {

using Kind = PropertyValue::Kind;

std::string quoted(const std::string& text) { return "\"" + text + "\""; }

std::string scalarText(const PropertyValue& value) {
  switch (value.kind()) {
    case Kind::string:
      return quoted(*value.asString());
    case Kind::integer:
      return std::to_string(*value.asInteger());
    case Kind::real:
      return realText(*value.asReal());
    case Kind::boolean:
      return *value.asBoolean() ? "true" : "false";
    case Kind::date:
      return "date " + quoted(*value.asDate());
    default: {
      std::string text = "<";
      appendBase64(*value.asData(), text);
      return text + ">";
    }
  }
}

/// A container that is being described, and how far.
struct Open {
  const PropertyDictionary* dictionary;  // null for an array
  const PropertyArray* array;
  std::size_t next;

  std::size_t size() const { return dictionary != nullptr ? dictionary->size() : array->size(); }
};

/// Starts a value: all of a scalar, the opening bracket of a container.
void begin(const PropertyValue& value, std::string& text, std::vector<Open>& open) {
  const PropertyDictionary* dictionary = value.asDictionary();
  const PropertyArray* array = value.asArray();
  if (dictionary == nullptr && array == nullptr) {
    text += scalarText(value);
    return;
  }
  text += dictionary != nullptr ? "{" : "(";
  open.push_back({dictionary, array, 0});
}

void startLine(std::string& text, std::size_t depth) {
  // Deeper lines start alike, so that a dump stays in proportion to its value.
  constexpr std::size_t kDeepestIndent = 32;
  text += '\n';
  text.append(2 * std::min(depth, kDeepestIndent), ' ');
}

}  // namespace

std::string PropertyValue::description() const {
  std::string text;
  std::vector<Open> open;
  begin(*this, text, open);
  while (!open.empty()) {
    Open& container = open.back();
    const bool isDictionary = container.dictionary != nullptr;
    if (container.next == container.size()) {
      const bool isEmpty = container.next == 0;
      open.pop_back();
      if (!isEmpty) startLine(text, open.size());
      text += isDictionary ? '}' : ')';
      continue;
    }
    startLine(text, open.size());
    const auto place = static_cast<std::ptrdiff_t>(container.next++);
    if (isDictionary) {
      const auto& [key, value] = *(container.dictionary->begin() + place);
      text += quoted(key) + " = ";
      begin(value, text, open);
    } else {
      begin(*(container.array->begin() + place), text, open);
    }
  }
  return text;
}

}  // namespace halyard
