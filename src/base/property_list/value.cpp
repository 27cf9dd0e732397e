// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/property_list.h"

namespace halyard {

namespace {

template <PropertyValue::Kind kKind>
constexpr std::integral_constant<PropertyValue::Kind, kKind> kOf{};

}  // namespace

template <PropertyValue::Kind kKind, typename T>
PropertyValue::PropertyValue(std::integral_constant<Kind, kKind> /*kind*/, T&& content)
    : content_(std::in_place_index<static_cast<std::size_t>(kKind)>, std::forward<T>(content)) {}

template <PropertyValue::Kind kKind>
const auto* PropertyValue::content() const {
  return std::get_if<static_cast<std::size_t>(kKind)>(&content_);
}

PropertyValue::PropertyValue() : PropertyValue(std::string()) {}
PropertyValue::PropertyValue(PropertyDictionary value)
    : PropertyValue(kOf<Kind::dictionary>, std::move(value)) {}
PropertyValue::PropertyValue(PropertyArray value)
    : PropertyValue(kOf<Kind::array>, std::move(value)) {}
PropertyValue::PropertyValue(std::string value)
    : PropertyValue(kOf<Kind::string>, std::move(value)) {}
PropertyValue::PropertyValue(const char* value) : PropertyValue(std::string(value)) {}
PropertyValue::PropertyValue(std::int64_t value) : PropertyValue(kOf<Kind::integer>, value) {}
PropertyValue::PropertyValue(int value) : PropertyValue(std::int64_t{value}) {}
PropertyValue::PropertyValue(double value) : PropertyValue(kOf<Kind::real>, value) {}
PropertyValue::PropertyValue(bool value) : PropertyValue(kOf<Kind::boolean>, value) {}

PropertyValue PropertyValue::date(std::string iso8601) {
  return {kOf<Kind::date>, std::move(iso8601)};
}

PropertyValue PropertyValue::data(std::string bytes) { return {kOf<Kind::data>, std::move(bytes)}; }

PropertyValue::PropertyValue(const PropertyValue& other) = default;
PropertyValue& PropertyValue::operator=(const PropertyValue& other) = default;

PropertyValue::Kind PropertyValue::kind() const { return static_cast<Kind>(content_.index()); }

const PropertyDictionary* PropertyValue::asDictionary() const {
  return content<Kind::dictionary>();
}

const PropertyArray* PropertyValue::asArray() const {
  const auto* array = content<Kind::array>();
  return array == nullptr ? nullptr : &array->get();
}

const std::string* PropertyValue::asString() const {
  const auto* text = content<Kind::string>();
  return text == nullptr ? nullptr : &text->get();
}

const std::string* PropertyValue::asDate() const {
  const auto* text = content<Kind::date>();
  return text == nullptr ? nullptr : &text->get();
}

const std::string* PropertyValue::asData() const {
  const auto* bytes = content<Kind::data>();
  return bytes == nullptr ? nullptr : &bytes->get();
}

std::optional<std::int64_t> PropertyValue::asInteger() const {
  const auto* integer = content<Kind::integer>();
  return integer == nullptr ? std::nullopt : std::optional(*integer);
}

std::optional<double> PropertyValue::asReal() const {
  const auto* real = content<Kind::real>();
  return real == nullptr ? std::nullopt : std::optional(*real);
}

std::optional<bool> PropertyValue::asBoolean() const {
  const auto* boolean = content<Kind::boolean>();
  return boolean == nullptr ? std::nullopt : std::optional(*boolean);
}

std::optional<PropertyDictionary> PropertyValue::takeDictionary() && {
  auto* dictionary = std::get_if<static_cast<std::size_t>(Kind::dictionary)>(&content_);
  return dictionary == nullptr ? std::nullopt : std::optional(std::move(*dictionary));
}

std::int32_t PropertyValue::integerValue() const {
  constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();
  constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
  switch (kind()) {
    case Kind::boolean:
      return *asBoolean() ? 1 : 0;
    case Kind::integer:
      return static_cast<std::int32_t>(std::clamp<std::int64_t>(*asInteger(), kLeast, kMost));
    case Kind::real: {
      const double real = *asReal();
      return std::isnan(real) ? 0
                              : static_cast<std::int32_t>(std::clamp<double>(real, kLeast, kMost));
    }
    case Kind::string:
      return leadingInteger(*asString());
    default:
      return 0;
  }
}

bool PropertyValue::operator==(const PropertyValue& other) const {
  if (const auto real = asReal(), otherReal = other.asReal(); real && otherReal) {
    return *real == *otherReal || (std::isnan(*real) && std::isnan(*otherReal));
  }
  return content_ == other.content_;
}

}  // namespace halyard
