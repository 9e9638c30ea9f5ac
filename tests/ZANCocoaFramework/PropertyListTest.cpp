#include "ZANCocoaFramework/ZAN_PropertyList.h"

#include <gmock/gmock.h>

#include <cmath>

#include "tests/ZANCocoaFramework/PropertyListBytes.h"

namespace corvana {
namespace {

using ::testing::HasSubstr;

std::string reason(std::span<const std::byte> bytes) {
  const auto list = ZAN_PropertyList::propertyListWithData(bytes);
  return list ? std::string() : list.error().text;
}
std::string xmlReason(std::string_view body) { return reason(bytesOf(xmlList(body))); }

ZAN_Value valueOf(std::span<const std::byte> bytes) {
  const auto list = ZAN_PropertyList::propertyListWithData(bytes);
  EXPECT_TRUE(list) << list.error().text;
  return list ? *list : ZAN_Value();
}

TEST(PropertyList, BinaryHasTenKinds) {
  const ZAN_Value list = valueOf(binaryList(
      {"df 10 0d 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d  0e 0f 10 11 12 13 14 15 16 17 18 19 0e",
       "51 'a'",
       "51 'b'",
       "51 'c'",
       "51 'd'",
       "51 'e'",
       "51 'f'",
       "51 'g'",
       "51 'h'",
       "51 'i'",
       "51 'j'",
       "51 'k'",
       "51 'l'",
       "51 'm'",
       "10 ff",
       "13 ffffffffffffffff",
       "14 0000000000000000 ffffffffffffffff",
       "22 40600000",
       "23 c132d68780000000",
       "33 41b0000000000000",
       "43 'abc'",
       "62 00e9 d83d",
       "62 d83c df4e",
       "09",
       "00",
       "c1 0e"}));
  EXPECT_EQ(list["a"].integerValue(), 255);
  EXPECT_EQ(list["a"].letter(), 'q');
  EXPECT_EQ(list["b"].integerValue(), -1);
  EXPECT_EQ(list["c"].unsignedValue(), UINT64_MAX);
  EXPECT_EQ(list["d"].doubleValue(), 3.5);
  EXPECT_EQ(list["e"].doubleValue(), -1234567.5);
  EXPECT_EQ(list["f"].asDate(), 268435456.0);
  EXPECT_EQ(list["g"], ZAN_Value::data("abc"));
  EXPECT_EQ(list["h"].string(), "\u00e9\ufffd");
  EXPECT_EQ(list["i"].string(), "\xf0\x9f\x8d\x8e");
  EXPECT_EQ(list["j"].letter(), 'c');
  EXPECT_TRUE(list["k"].isNull());
  EXPECT_EQ(list["l"], ZAN_Value::set({255}));
}

TEST(PropertyList, BinaryDamageAndTraps) {
  EXPECT_EQ(reason(binaryList({"a2 01 01", "a1 02", "51 'x'"})), "");
  EXPECT_THAT(reason(binaryList({"a1 05"})), HasSubstr("not there"));
  EXPECT_THAT(reason(binaryList({"a1 01", "a1 00"})), HasSubstr("within itself"));
  EXPECT_THAT(reason(binaryList({"d1 01 01", "10 05"})), HasSubstr("no text"));
  EXPECT_THAT(reason(binaryList({"af 13 7fffffffffffffff"})), HasSubstr("cut short"));
  EXPECT_THAT(reason(binaryList({"4f 12 00ffffff"})), HasSubstr("cut short"));
  EXPECT_THAT(reason(binaryList({"14 0000000000000001 0000000000000000"})), HasSubstr("too large"));
  EXPECT_THAT(reason(binaryList({"51 e9"})), HasSubstr("ASCII"));
  EXPECT_THAT(reason(binaryList({"0f"})), HasSubstr("unknown kind"));

  ArchiveBytes whole = binaryList({"d1 01 02", "51 'k'", "a2 01 01"});
  for (std::size_t i = 8; i < whole.size(); ++i) {
    ArchiveBytes changed = whole;
    for (int value = 0; value < 256; ++value) {
      changed[i] = static_cast<std::byte>(value);
      (void)reason(changed);
    }
    EXPECT_NE(reason(std::span(whole).first(i)), "");
  }

  // A thousand objects that all lie in the same bytes, a list of a thousand references.
  ArchiveBytes greedy = fromHex("'bplist00' af 11 03e8");
  for (int i = 0; i < 1000; ++i) {
    greedy.push_back(static_cast<std::byte>((i + 1) % 1000 >> 8));
    greedy.push_back(static_cast<std::byte>((i + 1) % 1000));
  }
  const auto table = static_cast<unsigned>(greedy.size());
  greedy.insert(greedy.end(), 1000, std::byte{8});
  for (const std::byte byte :
       fromHex("000000000000 01 02 00000000000003e8 0000000000000000 000000000000")) {
    greedy.push_back(byte);
  }
  greedy.push_back(static_cast<std::byte>(table >> 8));
  greedy.push_back(static_cast<std::byte>(table));
  EXPECT_THAT(reason(greedy), HasSubstr("overlap"));
}

TEST(PropertyList, XmlIsReadAndWritten) {
  const std::string body =
      "\n<dict>\n\t<key>a &amp; b</key>\n\t<integer>-5</integer>\n\t<key>big</key>\n"
      "\t<integer>18446744073709551615</integer>\n\t<key>real</key>\n\t<real>0.1</"
      "real>\n\t<key>yes</key>\n"
      "\t<true/>\n\t<key>when</key>\n\t<date>2026-11-21T09:30:05Z</date>\n\t<key>bytes</key>\n"
      "\t<data>YWJj</data>\n\t<key>list</key>\n\t<array>\n\t\t<string>&lt;\u00e9&gt;</"
      "string>\n\t\t<dict/>\n"
      "\t\t<string></string>\n\t</array>\n</dict>\n";
  const std::string text = xmlList(body);
  const ZAN_Value list = valueOf(bytesOf(text));
  EXPECT_EQ(list["a & b"].integerValue(), -5);
  EXPECT_EQ(list["big"].unsignedValue(), UINT64_MAX);
  EXPECT_EQ(list["when"].asDate(), 816946205.0);
  EXPECT_EQ(list["list"].at(0).string(), "<\u00e9>");
  EXPECT_EQ(ZAN_PropertyList::xmlPropertyList(list), text);

  EXPECT_EQ(valueOf(bytesOf("<plist><real>-infinity</real></plist>")).doubleValue(), -INFINITY);
  EXPECT_EQ(
      valueOf(bytesOf("\xef\xbb\xbf <?xml version=\"1.0\"?><plist><integer>0x1F</integer></plist>"))
          .integerValue(),
      31)
      << "byte-order marks and hexadecimal numbers occur";
}

TEST(PropertyList, WhatXmlCannotHoldIsLeftOut) {
  const ZAN_Value value = ZAN_Value::dictionaryOf({{1, "x"},
                                                   {"null", nullptr},
                                                   {"set", ZAN_Value::set({1})},
                                                   {"text", "a\x01\xff\uffff"},
                                                   {"early", ZAN_Value::date(-1e300)}});
  const ZAN_Value list = valueOf(bytesOf(ZAN_PropertyList::xmlPropertyList(value)));
  EXPECT_EQ(list.size(), 2U);
  EXPECT_EQ(list["text"].string(), "a\ufffd");
  EXPECT_EQ(valueOf(bytesOf(ZAN_PropertyList::xmlPropertyList({}))), ZAN_Value::dictionary());
}

TEST(PropertyList, XmlDamageAndTraps) {
  EXPECT_THAT(xmlReason("<array><integer>1</array>"), HasSubstr("line 3"));
  EXPECT_NE(xmlReason("<array><integer>1</integer></array><true/>"), "");
  for (const char* wrong :
       {"", "<integer>1.5</integer>", "<integer></integer>", "<date>2026-02-30T00:00:00Z</date>",
        "<date>today</date>", "<data>a</data>", "<thing/>", "<dict><integer>1</integer></dict>",
        "<dict><key>a</key></dict>", "text", "<string>&unknown;</string>",
        "<string><b/></string>"}) {
    EXPECT_NE(xmlReason(wrong), "") << wrong;
  }
  std::string deep;
  for (int i = 0; i < 100000; ++i) deep += "<array>";
  EXPECT_THAT(xmlReason(deep), HasSubstr("too deeply"));
  EXPECT_THAT(
      reason(bytesOf("<?xml version=\"1.0\"?><!DOCTYPE plist [<!ENTITY a \"aaaa\"><!ENTITY b "
                     "\"&a;&a;\">]><plist><string>&b;</string></plist>")),
      HasSubstr("entities"));
  EXPECT_NE(reason(bytesOf("{\"a\": 1}")), "");
}

}  // namespace
}  // namespace corvana
