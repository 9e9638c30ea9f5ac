#include <gmock/gmock.h>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_Opaque.h"
#include "tests/ZANCocoaFramework/ArchiveBytes.h"

namespace corvana {
namespace {

using ::testing::HasSubstr;

/// Why the bytes cannot be read; empty when they can.
std::string reason(const ArchiveBytes& bytes) {
  const auto decoded = ZAN_Unarchiver::unarchiveObjectWithData(bytes);
  return decoded ? std::string() : decoded.error().text;
}
std::string reason(std::string_view root) { return reason(archiveOf(root)); }
/// Of an array whose count and elements are given.
std::string arrayReason(std::string_view rest) {
  return reason(std::string(kArrayHead) + std::string(rest));
}

std::string repeated(int times, std::string_view text) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

ArchiveBytes sample() {
  ZAN_Value shared = ZAN_Value::array({"shared", 300, ZAN_Value::date(0.5)});
  ZAN_Value record = ZAN_Value::dictionary({{"a", shared},
                                            {"b", shared},
                                            {"data", ZAN_Value::data("xyz")},
                                            {"set", ZAN_Value::set({1, 2.5, nullptr})},
                                            {"indexes", ZAN_Value::indexSet({{1, 3}, {300, 2}})}});
  auto odd = std::make_shared<ZAN_Opaque>();
  odd->classes = {{"View", 3}, {"NSObject", 0}};
  odd->groups = {{"{P=f[2s]}@", {1.5, 1, 2, shared}}, {"[3c]", {ZAN_Value::data("abc")}}};
  record.setValue("odd", ZAN_Value::opaque(odd));
  return ZAN_Archiver::archivedDataWithRootObject(record);
}

TEST(ArchiveDamage, EveryCutIsNoticed) {
  const ArchiveBytes bytes = sample();
  ASSERT_EQ(reason(bytes), "");
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_NE(
        reason(ArchiveBytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size))), "")
        << size;
  }
  ArchiveBytes longer = bytes;
  longer.push_back(std::byte{0x86});
  EXPECT_THAT(reason(longer), HasSubstr("after the end"));
}

TEST(ArchiveDamage, WhateverStillReadsCanBeWrittenAndReadAgain) {
  const ArchiveBytes bytes = sample();
  int readable = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    ArchiveBytes changed = bytes;
    for (const int value : {0x00, 0x01, 0x7f, 0x80, 0x81, 0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x8f,
                            0x92, 0x95, 0x99, 0xff}) {
      changed[i] = static_cast<std::byte>(value);
      const auto decoded = ZAN_Unarchiver::unarchiveObjectWithData(changed);
      if (!decoded) continue;
      ++readable;
      const ArchiveBytes written = ZAN_Archiver::archivedDataWithRootObject(*decoded);
      const auto again = ZAN_Unarchiver::unarchiveObjectWithData(written);
      ASSERT_TRUE(again) << again.error().text;
      EXPECT_EQ(toHex(ZAN_Archiver::archivedDataWithRootObject(*again)), toHex(written));
    }
  }
  EXPECT_GT(readable, 100);
}

TEST(ArchiveDamage, Headers) {
  EXPECT_THAT(reason(ArchiveBytes()), HasSubstr("no data"));
  EXPECT_THAT(reason(fromHex("'bplist00 and more bytes'")), HasSubstr("no archive"));
  EXPECT_THAT(reason(fromHex("03 0b 'streamtyped' 81e803 84 01 '@' 85")),
              HasSubstr("unknown version"));
  EXPECT_EQ(reason(fromHex("04 0b 'streamtyped' 82 01000000 84 01 '@' 85")), "")
      << "any system version";
  EXPECT_THAT(reason(fromHex("04 0b 'streamtyped' 81e803")), HasSubstr("no object"));
  EXPECT_NE(reason(fromHex("04 0b 'streamtyped' 81e803 84 01 'i' 05")), "");
}

TEST(ArchiveDamage, References) {
  const std::string text =
      "92 84 84 84 08 'NSString' 01 94 84 01 '+' 01 'x' 86 ";  // object 3, class 4
  EXPECT_EQ(arrayReason("02 " + text + "92 95 86"), "");
  EXPECT_THAT(arrayReason("02 " + text + "92 7f 86"), HasSubstr("not there"));
  EXPECT_THAT(arrayReason("02 " + text + "92 81 00 f0 86"), HasSubstr("not there"));
  EXPECT_THAT(arrayReason("02 " + text + "92 96 86"), HasSubstr("than an object"));
  EXPECT_THAT(arrayReason("02 " + text + "92 84 95 86 86"), HasSubstr("than a class"));
  EXPECT_THAT(arrayReason("01 92 92 86"), HasSubstr("within itself"));
  EXPECT_NE(arrayReason("01 ff 86"), "") << "a type string that is not there";
  EXPECT_NE(reason("84 84 84 01 'A' 00 93"), "") << "a class that is its own superclass";
  EXPECT_THAT(reason("84 84 84 04 'View' 00 85 92 92 86"), HasSubstr("within itself"));
  EXPECT_NE(reason("84 85 86"), "") << "an object without a class";
  EXPECT_THAT(
      arrayReason(
          "01 92 84 84 84 08 'NSNumber' 00 84 84 07 'NSValue' 00 94 84 01 '*' 95 95 05 86 86"),
      HasSubstr("than a string"));
}

TEST(ArchiveDamage, HeadsThatBelongElsewhere) {
  for (const std::string head :
       {"80", "83 00000000", "84", "85", "86", "87 0100000000000000", "88", "91"}) {
    EXPECT_NE(arrayReason(head + " 86"), "") << head;
  }
  EXPECT_NE(arrayReason("ff 86"), "") << "a negative count";
  EXPECT_NE(arrayReason("01 92 85 86"), "") << "nil in an array";
  const std::string dictionary =
      "84 84 84 0c 'NSDictionary' 00 84 84 08 'NSObject' 00 85 84 01 'i' 01 92 ";
  EXPECT_THAT(reason(dictionary + "85 92 85 86"), HasSubstr("nil"));
  const std::string data = "84 84 84 06 'NSData' 00 84 84 08 'NSObject' 00 85 84 01 'i' 03 84 04 ";
  EXPECT_EQ(reason(data + "'[3c]' 'abc' 86"), "");
  EXPECT_THAT(reason(data + "'[2c]' 'ab' 86"), HasSubstr("two different lengths"));
  const std::string indexes = "84 84 84 0a 'NSIndexSet' 00 84 84 08 'NSObject' 00 85 84 01 'I' ";
  EXPECT_EQ(reason(indexes + "01 95 ff 95 01 86"), "") << "the last index there is";
  EXPECT_THAT(reason(indexes + "01 95 ff 95 02 86"), HasSubstr("without end"));
  EXPECT_THAT(reason(indexes + "01 95 01 95 00 86"), HasSubstr("empty range"));
  EXPECT_THAT(reason(indexes + "ff 95 01 95 00 86"), HasSubstr("announced"));
  EXPECT_THAT(reason("84 84 84 08 'NSString' 01 84 84 08 'NSObject' 00 85 84 01 '+' 02 c3 28 86"),
              HasSubstr("UTF-8"));
}

TEST(ArchiveDamage, TypesThatCannotBeRead) {
  const auto types = [](const std::string& string, const std::string& values) {
    const auto size = static_cast<unsigned>(string.size());
    return reason(archiveOf("84 84 84 01 'A' 00 85 84 " + toHex(std::vector{std::byte(size)}) +
                            " '" + string + "' " + values + " 86"));
  };
  EXPECT_EQ(types("i{a=s[3c]}", "01 02 'abc'"), "");
  EXPECT_EQ(types("[0c]", ""), "");
  for (const std::string bad :
       {"", "!", "{}", "{x=}", "[0i]", "[2[0c]]", "i[0c]", "[3c", "[c]", "{i", "i}", "^i", "(u=i)",
        "[99999999999c]", "v", "?", "[-1c]", "[3000000!]"}) {
    EXPECT_NE(types(bad, "01 01 01 01"), "") << bad;
  }
  EXPECT_NE(types(std::string(20, '{') + "i" + std::string(20, '}'), "01"), "")
      << "nested too deeply";
  EXPECT_NE(types("[2000000000[2000000000i]]", "01"), "");
}

TEST(ArchiveDamage, NestingAndClassChainsAreBounded) {
  const auto nested = [](int depth) {
    return arrayReason(repeated(depth, "01 92 84 93 95 ") + "00 " + repeated(depth + 1, "86"));
  };
  EXPECT_EQ(nested(120), "");
  EXPECT_THAT(nested(100000), HasSubstr("too deeply"));
  EXPECT_THAT(reason("84 " + repeated(1000, "84 84 01 'A' 00 ") + "85 86"),
              HasSubstr("superclasses"));
}

TEST(ArchiveDamage, SharedObjectsAreNeverMultiplied) {
  // 60 arrays, each of which holds the next one twice: 2^60 leaves.
  ZAN_Value chain = ZAN_Value::array({"leaf"});
  for (int i = 0; i < 60; ++i) chain = ZAN_Value::array({chain, chain});
  const ArchiveBytes bytes = ZAN_Archiver::archivedDataWithRootObject(chain);
  EXPECT_LT(bytes.size(), 1000U);
  const auto a = ZAN_Unarchiver::unarchiveObjectWithData(bytes);
  const auto b = ZAN_Unarchiver::unarchiveObjectWithData(bytes);
  ASSERT_TRUE(a && b);
  const bool equal = *a == *b;
  EXPECT_TRUE(equal);
  EXPECT_EQ(toHex(ZAN_Archiver::archivedDataWithRootObject(*a)), toHex(bytes));
}

TEST(ArchiveDamage, ManyEqualKeysCostNoMoreThanOthers) {
  std::vector<ZAN_Value::Entry> entries(100000, {"k", 1});
  entries.back().value = 2;
  const auto list = ZAN_Unarchiver::unarchiveObjectWithData(
      ZAN_Archiver::archivedDataWithRootObject(ZAN_Value::dictionaryOf(std::move(entries))));
  ASSERT_TRUE(list);
  for (int i = 0; i < 100000; ++i) ASSERT_EQ(list->integer("k"), 2);
}

TEST(ArchiveDamage, MemoryIsBoundedByTheInput) {
  EXPECT_THAT(arrayReason("82 ffffff7f 86"), HasSubstr("announced"));
  // Each of 100 arrays within each other announces all elements that the rest could hold.
  std::string greedy = "82 20a10700 ";
  for (int i = 0; i < 100; ++i) greedy += "92 84 93 95 82 20a10700 ";
  EXPECT_THAT(arrayReason(greedy + repeated(600000, "00 00 ")), HasSubstr("announced"));
  // Ten bytes an object, and every one would copy a class name of a megabyte.
  ArchiveBytes bytes = archiveOf(std::string(kArrayHead) + "82 40420f00 92 84 84 84 82 00001000 ");
  bytes.insert(bytes.end(), std::size_t{1} << 20, std::byte{'A'});
  for (const std::byte byte : fromHex("00 94 86")) bytes.push_back(byte);
  for (int i = 1; i < 1000000; ++i) {
    for (const std::byte byte :
         {std::byte{0x92}, std::byte{0x84}, std::byte{0x96}, std::byte{0x86}}) {
      bytes.push_back(byte);
    }
  }
  bytes.push_back(std::byte{0x86});
  EXPECT_THAT(reason(bytes), HasSubstr("memory"));
}

}  // namespace
}  // namespace corvana
