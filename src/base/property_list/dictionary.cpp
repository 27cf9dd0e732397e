// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <algorithm>
#include <bit>
#include <cstring>
#include <random>

#include "base/property_list.h"

namespace halyard {

namespace {

/// Dictionaries of up to this many keys are searched from end to end: no index to build or keep.
constexpr std::size_t kLinearSearch = 16;

constexpr std::uint64_t kPrime = (std::uint64_t{1} << 61) - 1;

std::uint64_t multiplyAdd(std::uint64_t a, std::uint64_t b, std::uint64_t c) {
  __extension__ using Wide = unsigned __int128;
  const Wide product = static_cast<Wide>(a) * b + c;
  const auto folded =
      static_cast<std::uint64_t>(product & kPrime) + static_cast<std::uint64_t>(product >> 61);
  return folded >= kPrime ? folded - kPrime : folded;
}

/// The key as a polynomial over seven-byte digits at a point drawn for each run. Whoever writes a
/// list does not know the point, so no choice of keys makes look-ups slow.
std::uint64_t hashOf(std::string_view key) {
  static const std::uint64_t kPoint = [] {
    std::random_device device;
    const std::uint64_t random = (std::uint64_t{device()} << 32) | device();
    return random % (kPrime - 256) + 128;
  }();
  std::uint64_t hash = key.size();
  while (!key.empty()) {
    const std::size_t length = std::min<std::size_t>(key.size(), 7);
    std::uint64_t digit = 0;
    std::memcpy(&digit, key.data(), length);
    hash = multiplyAdd(hash, kPoint, digit);
    key.remove_prefix(length);
  }
  return multiplyAdd(hash, kPoint, 0);  // The last digit must reach every bit as well.
}

}  // namespace

struct PropertyDictionary::Storage {
  struct Slot {
    std::uint32_t next = 0;  // the place of an entry plus one; 0 marks a free slot
    std::uint32_t tag = 0;   // tells most other keys apart without a look at their entries
  };

  std::vector<Entry> entries;
  std::vector<Slot> slots;  // by open addressing; a power of two, from kLinearSearch + 1 keys on

  std::size_t slotAt(std::uint64_t hash) const { return hash & (slots.size() - 1); }
  static std::uint32_t tagOf(std::uint64_t hash) { return static_cast<std::uint32_t>(hash >> 29); }

  /// The slot of the key, or the free one where it belongs.
  Slot& slotOf(std::string_view key, std::uint64_t hash) {
    for (std::size_t i = slotAt(hash);; i = slotAt(i + 1)) {
      Slot& slot = slots[i];
      if (slot.next == 0) return slot;
      if (slot.tag == tagOf(hash) && entries[slot.next - 1].first == key) return slot;
    }
  }

  /// The first entry with the key; null when there is none.
  Entry* find(std::string_view key) {
    if (!slots.empty()) {
      const std::uint32_t next = slotOf(key, hashOf(key)).next;
      return next == 0 ? nullptr : &entries[next - 1];
    }
    const auto found = std::ranges::find(entries, key, &Entry::first);
    return found == entries.end() ? nullptr : &*found;
  }

  /// The first entry with the key of the entry at `place`, before which all differ.
  Entry& firstLike(std::size_t place) {
    const std::string& key = entries[place].first;
    if (slots.empty()) return *std::ranges::find(entries, key, &Entry::first);
    const std::uint64_t hash = hashOf(key);
    Slot& slot = slotOf(key, hash);
    if (slot.next == 0) slot = {static_cast<std::uint32_t>(place + 1), tagOf(hash)};
    return entries[slot.next - 1];
  }

  /// Leaves each key once: at its first place, with its last value. The first `count` entries are
  /// known to differ.
  void unite(std::size_t count) {
    const std::size_t wanted = entries.size() + entries.size() / 2;
    if (entries.size() > kLinearSearch && slots.size() < wanted) {
      slots.assign(std::bit_ceil(wanted), Slot{});
      count = 0;
    }
    constexpr std::size_t kAhead = 16;  // In a large table each slot is a cache miss.
    for (std::size_t i = count; i < entries.size(); ++i) {
      if (!slots.empty() && i + kAhead < entries.size()) {
        __builtin_prefetch(&slots[slotAt(hashOf(entries[i + kAhead].first))]);
      }
      if (i != count) std::swap(entries[i], entries[count]);
      Entry& first = firstLike(count);
      if (&first == &entries[count]) {
        ++count;
      } else {
        first.second = std::move(entries[count].second);
      }
    }
    entries.resize(count);
  }
};

PropertyDictionary::PropertyDictionary(std::vector<Entry> entries) {
  if (entries.empty()) return;
  storage_ = std::make_unique<Storage>();
  storage_->entries = std::move(entries);
  storage_->unite(0);
}

PropertyDictionary::PropertyDictionary() = default;
PropertyDictionary::PropertyDictionary(PropertyDictionary&&) noexcept = default;
PropertyDictionary& PropertyDictionary::operator=(PropertyDictionary&&) noexcept = default;
PropertyDictionary::~PropertyDictionary() = default;

PropertyDictionary::PropertyDictionary(const PropertyDictionary& other)
    : storage_(other.storage_ ? std::make_unique<Storage>(*other.storage_) : nullptr) {}

PropertyDictionary& PropertyDictionary::operator=(const PropertyDictionary& other) {
  return *this = PropertyDictionary(other);
}

std::size_t PropertyDictionary::size() const { return storage_ ? storage_->entries.size() : 0; }

const PropertyValue* PropertyDictionary::find(std::string_view key) const {
  const Entry* entry = storage_ ? storage_->find(key) : nullptr;
  return entry == nullptr ? nullptr : &entry->second;
}

void PropertyDictionary::set(std::string key, PropertyValue value) {
  if (!storage_) storage_ = std::make_unique<Storage>();
  storage_->entries.emplace_back(std::move(key), std::move(value));
  storage_->unite(storage_->entries.size() - 1);
}

std::vector<PropertyDictionary::Entry>::const_iterator PropertyDictionary::begin() const {
  static const std::vector<Entry> kNone;
  return storage_ ? storage_->entries.cbegin() : kNone.cbegin();
}

std::vector<PropertyDictionary::Entry>::const_iterator PropertyDictionary::end() const {
  return begin() + static_cast<std::ptrdiff_t>(size());
}

bool PropertyDictionary::operator==(const PropertyDictionary& other) const {
  return std::equal(begin(), end(), other.begin(), other.end());
}

MaybeString PropertyDictionary::text(std::string_view key) const {
  const PropertyValue* value = find(key);
  const std::string* text = value == nullptr ? nullptr : value->asString();
  return text == nullptr ? MaybeString() : MaybeString(*text);
}

const PropertyDictionary* PropertyDictionary::dictionary(std::string_view key) const {
  const PropertyValue* value = find(key);
  return value == nullptr ? nullptr : value->asDictionary();
}

std::optional<std::vector<std::string>> PropertyDictionary::texts(std::string_view key) const {
  const PropertyValue* value = find(key);
  const PropertyArray* array = value == nullptr ? nullptr : value->asArray();
  if (array == nullptr) return std::nullopt;
  std::vector<std::string> texts;
  for (const PropertyValue& element : *array) {
    if (const std::string* text = element.asString()) texts.push_back(*text);
  }
  return texts;
}

}  // namespace halyard
