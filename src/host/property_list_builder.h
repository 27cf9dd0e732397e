// Builds a property-list value out of the elements and texts of one XML document.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/property_list.h"

namespace halyard::host {

enum class PropertyElement {
  plist,
  dictionary,
  array,
  key,
  string,
  integer,
  real,
  yes,
  no,
  date,
  data
};

/// Absent for a name that property lists do not have.
std::optional<PropertyElement> elementNamed(std::string_view name);

/// Takes the events of one pass in order. Each of the first three answers whether the list can
/// still be read; after the first "no" nothing more may be asked of the builder. Events must nest
/// as those of an XML document do: every end belongs to the latest start that is still open.
class PropertyListBuilder {
 public:
  bool start(PropertyElement element);
  bool end(PropertyElement element);
  bool characters(std::string_view text);

  /// The value of a document that has ended.
  PropertyValue takeRoot() { return std::move(*root_); }

 private:
  /// A container whose end has not come yet.
  struct Container {
    bool isDictionary = false;
    bool hasKey = false;
    std::string key;
    PropertyDictionary dictionary;
    PropertyArray array;
  };

  bool mayStand(PropertyElement element) const;
  bool endContainer();
  void place(PropertyValue value);
  std::string takeText();
  std::optional<PropertyValue> leafValue(PropertyElement element);

  bool plistIsOpen_ = false;
  bool leafIsOpen_ = false;
  bool leafHasText_ = false;  // may hold more than white space
  std::string text_;          // of the open leaf
  std::vector<Container> open_;
  std::optional<PropertyValue> root_;
};

}  // namespace halyard::host
