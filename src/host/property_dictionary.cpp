#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "host/property_list.h"

namespace halyard::host {

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
    std::uint64_t random = 0x9E3779B97F4A7C15;  // Without random bytes: right, only not secret.
    (void)getentropy(&random, sizeof random);
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

/// Places of keys in a vector of entries, found by open addressing; 0 marks a free slot.
class KeyIndex {
 public:
  using Entries = std::vector<PropertyDictionary::Entry>;

  /// The slot of `key`, or the free one where it belongs.
  std::size_t slotOf(std::string_view key, const Entries& entries) const {
    std::size_t slot = hashOf(key) & (slots_.size() - 1);
    while (slots_[slot] != 0 && entries[slots_[slot] - 1].first != key) {
      slot = (slot + 1) & (slots_.size() - 1);
    }
    return slot;
  }

  /// Place in `entries` plus one; 0 when the slot is free.
  std::uint32_t placeIn(std::size_t slot) const { return slots_[slot]; }

  /// Takes in the last entry, whose key is new.
  void add(const Entries& entries) {
    if (entries.size() * 4 > slots_.size() * 3) {
      rebuild(entries);
    } else {
      slots_[slotOf(entries.back().first, entries)] = static_cast<std::uint32_t>(entries.size());
    }
  }

 private:
  void rebuild(const Entries& entries) {
    std::size_t size = kLinearSearch;
    while (size < entries.size() * 2) size *= 2;
    slots_ = {};  // Not both tables at once.
    slots_.resize(size);
    for (std::size_t i = 0; i < entries.size(); ++i) {
      std::size_t slot = hashOf(entries[i].first) & (size - 1);
      while (slots_[slot] != 0) slot = (slot + 1) & (size - 1);
      slots_[slot] = static_cast<std::uint32_t>(i + 1);
    }
  }

  std::vector<std::uint32_t> slots_;  // their number is a power of two
};

}  // namespace

struct PropertyDictionary::Storage {
  std::vector<Entry> entries;
  std::unique_ptr<KeyIndex> index;  // from kLinearSearch + 1 keys on

  Storage() = default;
  Storage(const Storage& other)
      : entries(other.entries),
        index(other.index ? std::make_unique<KeyIndex>(*other.index) : nullptr) {}

  Entry* find(std::string_view key) {
    if (index) {
      const std::uint32_t place = index->placeIn(index->slotOf(key, entries));
      return place == 0 ? nullptr : &entries[place - 1];
    }
    const auto found = std::ranges::find(entries, key, &Entry::first);
    return found == entries.end() ? nullptr : &*found;
  }

  void append(std::string key, PropertyValue value) {
    entries.emplace_back(std::move(key), std::move(value));
    if (!index && entries.size() > kLinearSearch) index = std::make_unique<KeyIndex>();
    if (index) index->add(entries);
  }
};

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

void PropertyDictionary::trim() {
  if (storage_) storage_->entries.shrink_to_fit();
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

}  // namespace halyard::host
