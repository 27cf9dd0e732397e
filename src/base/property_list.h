// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// XML property lists: values, reader, writer.
//
// The reader is expat behind guards: a regular file of bounded size, UTF-8 without NUL, no internal
// DOCTYPE subset (an external identifier is read over, never fetched), no entities but the
// predefined five and character references, at most 512 containers inside each other, nothing but
// white space after the root, no attribute with a reference in it. The root is <plist> with exactly
// one value, or the value itself. A key without a value, a value without a key, an unknown element,
// text where none belongs, and a number or base64 text that is not wholly one are refused too, and
// so is a tag or comment of more than a megabyte.
// Integers have a sign and decimal or "0x" digits and fit 64 bits; reals may be "nan" or "inf";
// dates are texts that nobody looks at. Whatever is refused is absent: never an exception, an exit
// or a partial value.
//
// Reading, writing and describing take linear time and constant stack; copying, comparing and
// destroying a value recurse once a level. A value takes 16 bytes, a dictionary entry 48, plus the
// texts that are longer than that; copies are deep.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "base/text.h"

namespace halyard {

class PropertyValue;

/// Keys in file order; a repeated key keeps its first place and takes the last value. Look-up takes
/// the same time for a million keys as for a hundred, whatever the keys are.
class PropertyDictionary {
 public:
  using Entry = std::pair<std::string, PropertyValue>;

  PropertyDictionary();
  /// Takes entries in order, as so many calls of set().
  explicit PropertyDictionary(std::vector<Entry> entries);
  PropertyDictionary(PropertyDictionary&&) noexcept;
  PropertyDictionary& operator=(PropertyDictionary&&) noexcept;
  PropertyDictionary(const PropertyDictionary&);
  PropertyDictionary& operator=(const PropertyDictionary&);
  ~PropertyDictionary();

  std::size_t size() const;
  bool empty() const { return size() == 0; }
  /// Null when the key is missing.
  const PropertyValue* find(std::string_view key) const;
  /// Replaces the value of a key that is there, else appends it.
  void set(std::string key, PropertyValue value);
  std::vector<Entry>::const_iterator begin() const;
  std::vector<Entry>::const_iterator end() const;
  /// The same keys with equal values in the same order.
  bool operator==(const PropertyDictionary& other) const;

  /// The value of a key when it has that type, else absent or null.
  MaybeString text(std::string_view key) const;
  const PropertyDictionary* dictionary(std::string_view key) const;
  /// The strings of an array; entries of other types are left out. Absent unless an array.
  std::optional<std::vector<std::string>> texts(std::string_view key) const;

 private:
  struct Storage;
  std::unique_ptr<Storage> storage_;  // null while empty: most values of a list are small
};

using PropertyArray = std::vector<PropertyValue>;

namespace detail {

/// A T on the heap that is copied with its owner; an empty T takes no memory.
template <typename T>
class Boxed {
 public:
  Boxed() = default;
  explicit Boxed(T content) {
    if (!content.empty()) content_ = std::make_unique<T>(std::move(content));
  }
  Boxed(Boxed&& other) noexcept = default;
  Boxed& operator=(Boxed&& other) noexcept = default;
  Boxed(const Boxed& other) : Boxed(other.content_ ? Boxed(*other.content_) : Boxed()) {}
  Boxed& operator=(const Boxed& other) { return *this = Boxed(other); }
  ~Boxed() = default;

  const T& get() const {
    static const T kEmpty;
    return content_ ? *content_ : kEmpty;
  }
  bool operator==(const Boxed& other) const { return get() == other.get(); }

 private:
  std::unique_ptr<T> content_;
};

}  // namespace detail

/// One value of a property list.
class PropertyValue {
 public:
  enum class Kind { dictionary, array, string, integer, real, boolean, date, data };

  PropertyValue();                          ///< An empty string.
  PropertyValue(PropertyDictionary value);  // NOLINT(google-explicit-constructor)
  PropertyValue(PropertyArray value);       // NOLINT(google-explicit-constructor)
  PropertyValue(std::string value);         // NOLINT(google-explicit-constructor)
  PropertyValue(const char* value);         // NOLINT(google-explicit-constructor)
  PropertyValue(std::int64_t value);        // NOLINT(google-explicit-constructor)
  PropertyValue(int value);                 // NOLINT(google-explicit-constructor)
  PropertyValue(double value);              // NOLINT(google-explicit-constructor)
  PropertyValue(bool value);                // NOLINT(google-explicit-constructor)
  static PropertyValue date(std::string iso8601);
  static PropertyValue data(std::string bytes);

  PropertyValue(PropertyValue&& other) noexcept;
  PropertyValue& operator=(PropertyValue&& other) noexcept;
  PropertyValue(const PropertyValue& other);
  PropertyValue& operator=(const PropertyValue& other);
  ~PropertyValue();

  Kind kind() const;
  /// Null unless the value is of that kind.
  const PropertyDictionary* asDictionary() const;
  const PropertyArray* asArray() const;
  const std::string* asString() const;  ///< Of a string only.
  const std::string* asDate() const;
  const std::string* asData() const;
  std::optional<std::int64_t> asInteger() const;
  std::optional<double> asReal() const;
  std::optional<bool> asBoolean() const;
  /// The dictionary itself, which leaves an empty one here; absent unless the value is one.
  std::optional<PropertyDictionary> takeDictionary() &&;

  /// As an integer preference: booleans 0 or 1, integers and reals truncated to 32 bits by
  /// saturation, strings by leadingInteger, anything else 0.
  std::int32_t integerValue() const;

  /// One readable form of any value, several lines for a container, for diagnostic dumps:
  /// `{`, entries as `"key" = value`, `}`; `(`, elements, `)`; texts in quotes, bytes as they are.
  std::string description() const;

  /// The same kind and content; every NaN equals every other.
  bool operator==(const PropertyValue& other) const;

 private:
  using Text = detail::Boxed<std::string>;
  // In the order of Kind.
  using Content = std::variant<PropertyDictionary, detail::Boxed<PropertyArray>, Text, std::int64_t,
                               double, bool, Text, Text>;

  template <Kind kKind, typename T>
  PropertyValue(std::integral_constant<Kind, kKind> kind, T&& content);
  template <Kind kKind>
  const auto* content() const;

  Content content_;
};

// Inline because the reader moves each value several times.
inline PropertyValue::PropertyValue(PropertyValue&& other) noexcept = default;
inline PropertyValue& PropertyValue::operator=(PropertyValue&& other) noexcept = default;
inline PropertyValue::~PropertyValue() = default;

inline constexpr std::size_t kPreferenceLimit = std::size_t{16} << 20;  ///< Bytes.
inline constexpr std::size_t kBrowseDataLimit = std::size_t{256} << 20;

/// Parses XML property-list text; absent for anything that is refused.
std::optional<PropertyValue> parsePropertyList(std::string_view text);

/// Parses text and takes its root dictionary; absent for any other root.
std::optional<PropertyDictionary> parseDictionary(std::string_view text);

/// Takes the pieces of a written list, in order; a piece is gone when the call returns.
using PropertyListSink = std::function<void(std::string_view)>;

/// Writes the usual XML form, indented with tabs; parsePropertyList gives an equal value back. What
/// XML cannot carry (control characters other than tab, line feed and carriage return, U+FFFE,
/// U+FFFF, bytes that are not UTF-8) becomes U+FFFD: the reader never gives such a text. The pieces
/// have up to 64 KiB, so a file needs no second copy of its content in memory.
void writePropertyList(const PropertyValue& value, const PropertyListSink& sink);
void writePropertyList(const PropertyDictionary& dictionary, const PropertyListSink& sink);

/// The same, as one text.
std::string writePropertyList(const PropertyValue& value);
std::string writePropertyList(const PropertyDictionary& dictionary);

/// Writes a list whose root is a dictionary, entry by entry, so that the values need not be in
/// memory together. The caller gives each key once.
class DictionaryWriter {
 public:
  explicit DictionaryWriter(PropertyListSink sink);
  ~DictionaryWriter();
  void entry(const std::string& key, const PropertyValue& value);
  /// Ends the list; nothing may follow.
  void finish();

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace halyard
