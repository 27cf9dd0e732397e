// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Extended attributes: access control lists, capabilities, labels and whatever users add.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "host/files/descriptor.h"

namespace halyard::host {

/// An item as the extended-attribute calls reach it.
class AttributeItem {
 public:
  /// A regular file or folder, opened for reading or writing.
  static AttributeItem opened(int descriptor) { return {descriptor, nullptr}; }
  /// Anything else, which cannot be opened: the item itself when it is a link. Only for as long as
  /// its folder is the WorkingFolder.
  static AttributeItem named(const char* name) { return {-1, name}; }

  ssize_t list(char* names, std::size_t size) const;
  ssize_t get(const char* attribute, void* value, std::size_t size) const;
  int set(const char* attribute, const std::string& value) const;  ///< An error number.
  int remove(const char* attribute) const;                         ///< An error number.

 private:
  AttributeItem(int descriptor, const char* name) : descriptor_(descriptor), name_(name) {}
  int descriptor_;
  const char* name_;
};

/// Makes a folder the working folder for a while: no call reaches the extended attributes of a link
/// relative to a descriptor. For programs of one thread.
class WorkingFolder {
 public:
  explicit WorkingFolder(int folder);
  ~WorkingFolder();
  WorkingFolder(const WorkingFolder&) = delete;
  WorkingFolder& operator=(const WorkingFolder&) = delete;

  /// Why the folder is not the working folder; 0 when it is.
  int error() const { return error_; }

 private:
  Descriptor former_;
  int error_ = 0;
};

/// All extended attributes of one item.
class ExtendedAttributes {
 public:
  int read(const AttributeItem& item);
  bool empty() const { return attributes_.empty(); }
  /// Gives each of them the value that `value(name, what it has)` answers.
  template <typename Value>
  void change(Value value) {
    for (auto& [name, held] : attributes_) held = value(name, std::move(held));
  }
  /// Whether both hold the same, what belongs to one kind of file system alone left aside.
  bool isSameEverywhere(const ExtendedAttributes& other) const;

  /// Sets each of them. What belongs to one kind of file system alone (not access control lists,
  /// capabilities, labels and users' own) is left out where the item's file system does not know
  /// it. With `lost` so are all others, which is told there.
  int give(const AttributeItem& item, bool* lost = nullptr) const;
  /// Takes away from the item those that are not among these.
  int removeOthers(const AttributeItem& item) const;

 private:
  using Attribute = std::pair<std::string, std::string>;
  std::vector<Attribute> attributes_;  ///< Sorted.
};

/// Takes away the access control lists that a new item inherited from its folder.
int removeInheritedLists(int descriptor);
/// The same for an item that cannot be opened, and is no folder.
int removeInheritedList(int folder, const char* name);

/// Whether new items in this folder inherit an access control list.
bool handsDownLists(int folder);

}  // namespace halyard::host
