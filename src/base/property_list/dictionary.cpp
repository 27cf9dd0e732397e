// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <algorithm>
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

using Entries = std::vector<PropertyDictionary::Entry>;

/// Places of keys in a vector of entries, found by open addressing.
class KeyIndex {
 public:
  /// Without keys, with room for `count` of them and more.
  explicit KeyIndex(std::size_t count) {
    std::size_t size = 2 * kLinearSearch;
    while (size < count + count / 2) size *= 2;
    slots_.resize(size);
  }

  /// Place of the key; absent when it is not there.
  std::optional<std::size_t> find(std::string_view key, const Entries& entries) const {
    const Slot& slot = slots_[slotOf(key, hashOf(key), entries)];
    return slot.next == 0 ? std::nullopt : std::optional<std::size_t>(slot.next - 1);
  }

  /// Place of the first entry with the key of entry `place`, which is taken in when it is new.
  std::size_t placeOf(const Entries& entries, std::size_t place) {
    const std::string& key = entries[place].first;
    const std::uint64_t hash = hashOf(key);
    Slot& slot = slots_[slotOf(key, hash, entries)];
    if (slot.next == 0) slot = {static_cast<std::uint32_t>(place + 1), tagOf(hash)};
    return slot.next - 1;
  }

  /// Has the slot of a key fetched that is asked for soon: in a large index each is a cache miss.
  void prepare(std::string_view key) const {
    __builtin_prefetch(&slots_[hashOf(key) & (slots_.size() - 1)]);
  }

  bool hasRoomFor(std::size_t count) const { return count * 4 <= slots_.size() * 3; }

 private:
  struct Slot {
    std::uint32_t next = 0;  // place plus one; 0 marks a free slot
    std::uint32_t tag = 0;   // tells most other keys apart without a look at their entries
  };

  static std::uint32_t tagOf(std::uint64_t hash) { return static_cast<std::uint32_t>(hash >> 29); }

  /// The slot of the key, or the free one where it belongs.
  std::size_t slotOf(std::string_view key, std::uint64_t hash, const Entries& entries) const {
    std::size_t place = hash & (slots_.size() - 1);
    for (;; place = (place + 1) & (slots_.size() - 1)) {
      const Slot& slot = slots_[place];
      if (slot.next == 0) return place;
      if (slot.tag == tagOf(hash) && entries[slot.next - 1].first == key) return place;
    }
  }

  std::vector<Slot> slots_;  // their number is a power of two
};

}  // namespace

struct PropertyDictionary::Storage {
  Entries entries;
  std::unique_ptr<KeyIndex> index;  // from kLinearSearch + 1 keys on

  Storage() = default;
  Storage(const Storage& other)
      : entries(other.entries),
        index(other.index ? std::make_unique<KeyIndex>(*other.index) : nullptr) {}

  Entry* find(std::string_view key) {
    if (index) {
      const auto place = index->find(key, entries);
      return place ? &entries[*place] : nullptr;
    }
    const auto found = std::ranges::find(entries, key, &Entry::first);
    return found == entries.end() ? nullptr : &*found;
  }

  void append(std::string key, PropertyValue value) {
    entries.emplace_back(std::move(key), std::move(value));
    if (index && index->hasRoomFor(entries.size())) {
      (void)index->placeOf(entries, entries.size() - 1);
    } else if (entries.size() > kLinearSearch) {
      index = nullptr;  // Not both at once.
      index = std::make_unique<KeyIndex>(2 * entries.size());
      for (std::size_t i = 0; i < entries.size(); ++i) (void)index->placeOf(entries, i);
    }
  }

  /// Place of the first entry with the key of entry `place`; all entries before it differ.
  std::size_t firstWithKeyOf(std::size_t place) {
    if (index) return index->placeOf(entries, place);
    const auto last = entries.begin() + static_cast<std::ptrdiff_t>(place);
    const auto found = std::find_if(entries.begin(), last,
                                    [&](const Entry& entry) { return entry.first == last->first; });
    return static_cast<std::size_t>(found - entries.begin());
  }

  /// Leaves each key once: at its first place, with its last value.
  void unite() {
    if (entries.size() > kLinearSearch) index = std::make_unique<KeyIndex>(entries.size());
    constexpr std::size_t kAhead = 16;
    std::size_t count = 0;
    for (std::size_t i = 0; i < entries.size(); ++i) {
      if (index && i + kAhead < entries.size()) index->prepare(entries[i + kAhead].first);
      if (i != count) std::swap(entries[i], entries[count]);
      const std::size_t first = firstWithKeyOf(count);
      if (first == count) {
        ++count;
      } else {
        entries[first].second = std::move(entries[count].second);
      }
    }
    entries.resize(count);
  }
};

PropertyDictionary::PropertyDictionary(std::vector<Entry> entries) {
  if (entries.empty()) return;
  storage_ = std::make_unique<Storage>();
  storage_->entries = std::move(entries);
  storage_->unite();
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
  if (Entry* entry = storage_->find(key)) {
    entry->second = std::move(value);
  } else {
    storage_->append(std::move(key), std::move(value));
  }
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
