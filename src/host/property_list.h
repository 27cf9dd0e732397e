// XML property lists: values, reader, writer.
//
// The reader is expat behind guards: a regular file of bounded size, UTF-8 without NUL, no internal
// DOCTYPE subset, no entities but the predefined five, at most 512 levels, nothing but white space
// after the root. Whatever it refuses is absent: never an exception, an exit or a partial value.
// Reading and writing take linear time and constant stack.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/text.h"

namespace halyard::host {

class PropertyValue;

/// Keys in file order; a repeated key keeps its first place and takes the last value. Look-up does
/// not grow with the number of keys beyond the logarithm.
class PropertyDictionary {
 public:
  using Entry = std::pair<std::string, PropertyValue>;

  PropertyDictionary();
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
  bool operator==(const PropertyDictionary& other) const;

  /// The value of a key when it has that type, else absent or null.
  MaybeString text(std::string_view key) const;
  const PropertyDictionary* dictionary(std::string_view key) const;
  /// The strings of an array; entries of other types are left out. Absent unless an array.
  std::optional<std::vector<std::string>> texts(std::string_view key) const;

 private:
  struct Storage;
  std::unique_ptr<Storage> storage_;
};

using PropertyArray = std::vector<PropertyValue>;

/// One value of a property list.
class PropertyValue {
 public:
  enum class Kind { dictionary, array, string, integer, real, boolean, date, data };

  PropertyValue();  ///< An empty string.
  PropertyValue(PropertyDictionary value);   // NOLINT(google-explicit-constructor)
  PropertyValue(PropertyArray value);        // NOLINT(google-explicit-constructor)
  PropertyValue(std::string value);          // NOLINT(google-explicit-constructor)
  PropertyValue(const char* value);          // NOLINT(google-explicit-constructor)
  PropertyValue(std::int64_t value);         // NOLINT(google-explicit-constructor)
  PropertyValue(int value);                  // NOLINT(google-explicit-constructor)
  PropertyValue(double value);               // NOLINT(google-explicit-constructor)
  PropertyValue(bool value);                 // NOLINT(google-explicit-constructor)
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

  /// As an integer preference: booleans 0 or 1, integers and reals truncated to 32 bits by
  /// saturation, strings by leadingInteger, anything else 0.
  std::int32_t integerValue() const;

  /// One readable form of any value, for diagnostic dumps.
  std::string description() const;

  bool operator==(const PropertyValue& other) const;

 private:
  struct Representation;
  std::unique_ptr<Representation> representation_;
};

inline constexpr std::size_t kPreferenceLimit = std::size_t{16} << 20;  ///< Bytes.
inline constexpr std::size_t kBrowseDataLimit = std::size_t{256} << 20;

/// Parses XML property-list text; absent for anything that is refused.
std::optional<PropertyValue> parsePropertyList(std::string_view text);

/// Reads a regular file of at most `limit` bytes; absent for anything that is refused.
std::optional<PropertyValue> readPropertyList(const std::string& path,
                                              std::size_t limit = kPreferenceLimit);

/// As readPropertyList; absent too when the root is no dictionary.
std::optional<PropertyDictionary> readDictionary(const std::string& path,
                                                 std::size_t limit = kPreferenceLimit);

/// Parses text and takes its root dictionary; absent for any other root.
std::optional<PropertyDictionary> parseDictionary(std::string_view text);

/// The usual XML form, with tabs; parsePropertyList gives an equal value back.
std::string writePropertyList(const PropertyValue& value);
std::string writePropertyList(const PropertyDictionary& dictionary);

}  // namespace halyard::host
