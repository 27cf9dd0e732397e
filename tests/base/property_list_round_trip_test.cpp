// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <random>

#include "base/property_list.h"
#include "base/property_list/scalars.h"
#include "host/files/property_file.h"
#include "host/process/task.h"
#include "support/scratch.h"

namespace halyard::host {
namespace {

/// Makes the same values in every run.
class ValueMaker {
 public:
  enum class CarriageReturns { some, none };

  explicit ValueMaker(std::uint64_t seed, CarriageReturns returns = CarriageReturns::some)
      : random_(seed), returns_(returns) {}

  PropertyValue value(int levels) {
    switch (below(levels > 0 ? 9 : 7)) {
      case 0:
        return text();
      case 1:
        return static_cast<std::int64_t>(random_()) >> below(64);
      case 2:
        return std::bit_cast<double>(random_());
      case 3:
        return below(2) == 0;
      case 4:
        return PropertyValue::date("2026-01-0" + std::to_string(1 + below(9)) + "T03:04:05Z");
      case 5:
        return PropertyValue::data(bytes());
      case 6:
        return static_cast<double>(below(1000)) / 8;
      case 7:
        return array(levels - 1);
      default:
        return dictionary(levels - 1);
    }
  }

  PropertyDictionary dictionary(int levels) {
    PropertyDictionary dictionary;
    for (int i = below(below(8) == 0 ? 40 : 6); i > 0; --i) dictionary.set(text(), value(levels));
    return dictionary;
  }

 private:
  int below(int limit) { return static_cast<int>(random_() % static_cast<std::uint64_t>(limit)); }

  PropertyArray array(int levels) {
    PropertyArray array;
    for (int i = below(6); i > 0; --i) array.push_back(value(levels));
    return array;
  }

  /// Of characters that XML can carry.
  std::string text() {
    static const std::vector<std::string> kPieces{"a",
                                                  "Z",
                                                  "0",
                                                  " ",
                                                  "\t",
                                                  "\n",
                                                  "\r",
                                                  "\r\n",
                                                  "&",
                                                  "<",
                                                  ">",
                                                  "\"",
                                                  "'",
                                                  "]]>",
                                                  "&amp;",
                                                  "--",
                                                  "\xC2\x85",
                                                  "\xC3\xA4",
                                                  "\xE2\x82\xAC",
                                                  "\xEF\xBF\xBD",
                                                  "\xF0\x9F\x98\x80",
                                                  "\x7F"};
    std::string text;
    for (int i = below(below(20) == 0 ? 400 : 12); i > 0; --i) {
      text += kPieces[static_cast<std::size_t>(below(static_cast<int>(kPieces.size())))];
    }
    if (returns_ == CarriageReturns::none) std::erase(text, '\r');
    return text;
  }

  std::string bytes() {
    std::string bytes;
    for (int i = below(200); i > 0; --i) bytes.push_back(static_cast<char>(below(256)));
    return bytes;
  }

  std::mt19937_64 random_;
  CarriageReturns returns_;
};

TEST(PropertyListRoundTrip, GivesBackWhatWasWritten) {
  ValueMaker maker(20260101);
  for (int i = 0; i < 3000; ++i) {
    const PropertyValue value = maker.value(5);
    const auto back = parsePropertyList(writePropertyList(value));
    ASSERT_TRUE(back) << writePropertyList(value);
    ASSERT_EQ(*back, value) << writePropertyList(value);
  }
}

TEST(PropertyListRoundTrip, GivesBackTheDeepestValueThatTheReaderTakes) {
  PropertyValue value("x");
  for (int i = 0; i < 512; ++i) {
    PropertyDictionary dictionary;
    dictionary.set("key", std::move(value));
    value = std::move(dictionary);
  }
  EXPECT_EQ(parsePropertyList(writePropertyList(value)), value);
}

/// One line of text for a value, the same as printed by kPythonDump for what plistlib reads.
void dump(const PropertyValue& value, std::string& text) {
  const auto hexadecimal = [&text](const std::string& bytes) {
    for (const char c : bytes) {
      constexpr char kDigits[] = "0123456789abcdef";
      text += kDigits[static_cast<unsigned char>(c) >> 4];
      text += kDigits[static_cast<unsigned char>(c) & 15];
    }
  };
  switch (value.kind()) {
    case PropertyValue::Kind::dictionary:
      text += "{";
      for (const auto& [key, inner] : *value.asDictionary()) {
        hexadecimal(key);
        text += ":";
        dump(inner, text);
      }
      text += "}";
      break;
    case PropertyValue::Kind::array:
      text += "[";
      for (const PropertyValue& inner : *value.asArray()) dump(inner, text);
      text += "]";
      break;
    case PropertyValue::Kind::string:
      text += "s";
      hexadecimal(*value.asString());
      break;
    case PropertyValue::Kind::integer:
      text += "i" + std::to_string(*value.asInteger());
      break;
    case PropertyValue::Kind::real: {
      const double real = *value.asReal();
      text += "r" + (std::isnan(real) ? "nan" : std::to_string(std::bit_cast<std::uint64_t>(real)));
      break;
    }
    case PropertyValue::Kind::boolean:
      text += *value.asBoolean() ? "b1" : "b0";
      break;
    case PropertyValue::Kind::date:
      text += "t" + *value.asDate();
      break;
    case PropertyValue::Kind::data:
      text += "d";
      hexadecimal(*value.asData());
      break;
  }
  text += ";";
}

constexpr char kPythonDump[] = R"(
import datetime, math, plistlib, struct, sys
def dump(v):
    if isinstance(v, dict):
        return '{' + ''.join(k.encode().hex() + ':' + dump(x) for k, x in v.items()) + '};'
    if isinstance(v, list):
        return '[' + ''.join(map(dump, v)) + '];'
    if isinstance(v, bool):
        return 'b%d;' % v
    if isinstance(v, int):
        return 'i%d;' % v
    if isinstance(v, float):
        return 'rnan;' if math.isnan(v) else 'r%d;' % struct.unpack('<Q', struct.pack('<d', v))
    if isinstance(v, datetime.datetime):
        return 't' + v.strftime('%Y-%m-%dT%H:%M:%SZ') + ';'
    return ('s' + v.encode().hex() if isinstance(v, str) else 'd' + v.hex()) + ';'
value = plistlib.load(open(sys.argv[1], 'rb'))
print(dump(value), end='')
plistlib.dump(value, open(sys.argv[2], 'wb'), sort_keys=False)
)";

/// What plistlib reads from ours.plist, as a dump; it writes the same to theirs.plist.
class Plistlib : public testing::Test {
 protected:
  void SetUp() override {
    if (!test::Scratch::stands(kPython)) GTEST_SKIP() << "python3 is not installed";
  }

  std::string dumpOf(const PropertyValue& value) const {
    const std::string ours = scratch_.write("ours.plist", writePropertyList(value));
    const TaskResult result = RunTask(kPython, {"-c", kPythonDump, ours, theirs()});
    EXPECT_EQ(result.status, 0) << result.error;
    return result.output;
  }

  std::string theirs() const { return scratch_ / "theirs.plist"; }

 private:
  static constexpr char kPython[] = "/usr/bin/python3";
  const test::Scratch scratch_;
};

PropertyValue someValues(ValueMaker maker) {
  PropertyArray values;
  for (int i = 0; i < 1000; ++i) values.push_back(maker.value(5));
  return values;
}

TEST_F(Plistlib, ReadsWhatWasWritten) {
  const PropertyValue written = someValues(ValueMaker(20260102));
  std::string expected;
  dump(written, expected);
  EXPECT_TRUE(dumpOf(written) == expected);
}

TEST_F(Plistlib, WritesWhatIsRead) {
  // Its writer turns carriage returns into line feeds.
  const PropertyValue written = someValues(ValueMaker(20260103, ValueMaker::CarriageReturns::none));
  (void)dumpOf(written);
  const auto back = readPropertyList(theirs());
  ASSERT_TRUE(back);
  EXPECT_TRUE(*back == written);
}

}  // namespace
}  // namespace halyard::host
