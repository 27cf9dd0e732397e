// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Builds a property-list value out of the elements and texts of one XML document.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/property_list.h"

namespace halyard {

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
  bool end();
  bool characters(std::string_view text);

  /// Whether the root has ended.
  bool isComplete() const { return root_ && !plistIsOpen_; }
  /// The value of a document whose root has ended.
  PropertyValue takeRoot() { return std::move(*root_); }

 private:
  /// A container whose end has not come yet.
  struct Container {
    bool isDictionary = false;
    std::optional<std::string> key;  // whose value has not come yet
    std::vector<PropertyDictionary::Entry> entries;
    PropertyArray array;
  };

  bool mayStand(PropertyElement element) const;
  bool endLeaf();
  bool endContainer();
  void place(PropertyValue&& value);
  std::optional<PropertyValue> leafValue();

  bool plistIsOpen_ = false;
  std::optional<PropertyElement> leaf_;  // the open element that is no container
  std::string text_;                     // of the leaf
  std::vector<Container> open_;
  std::optional<PropertyValue> root_;
};

}  // namespace halyard
