#include <gmock/gmock.h>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_Opaque.h"
#include "tests/ZANCocoaFramework/PropertyListBytes.h"

namespace corvana {
namespace {

using ::testing::HasSubstr;

Result<ZAN_Value> decode(std::span<const std::byte> bytes) {
  return ZAN_KeyedUnarchiver::unarchiveObjectWithData(bytes);
}

std::string uid(int number) {
  return "<dict><key>CF$UID</key><integer>" + std::to_string(number) + "</integer></dict>";
}

/// An XML keyed archive whose root is object 1; "@5" in the entries stands for a reference to
/// object 5.
std::string keyed(std::string_view entries, const std::string& top = "<key>root</key>@1") {
  std::string body =
      "<dict><key>$archiver</key><string>NSKeyedArchiver</string><key>$objects</key><array>"
      "<string>$null</string>" +
      std::string(entries) + "</array><key>$top</key><dict>" + top +
      "</dict><key>$version</key><integer>100000</integer></dict>";
  for (std::size_t at = 0; (at = body.find('@', at)) != std::string::npos;) {
    std::size_t end = at + 1;
    while (end < body.size() && isdigit(body[end]) != 0) ++end;
    body.replace(at, end - at, uid(std::stoi(body.substr(at + 1, end - at - 1))));
  }
  return xmlList(body);
}

std::string ofClass(int number, const std::string& keys) {
  return "<dict><key>$class</key>@" + std::to_string(number) + keys + "</dict>";
}
std::string className(const std::string& name) {
  return "<dict><key>$classname</key><string>" + name + "</string></dict>";
}
std::string reason(const std::string& xml) {
  const auto value = decode(bytesOf(xml));
  return value ? std::string() : value.error().text;
}

TEST(KeyedArchive, BinaryDictionary) {
  // {"Command": 5, "Name": the mutable text "Ada"}
  const ArchiveBytes bytes = binaryList({"d4 01 02 03 04 05 06 07 08",
                                         "59 '$archiver'",
                                         "58 '$objects'",
                                         "54 '$top'",
                                         "58 '$version'",
                                         "5f 10 0f 'NSKeyedArchiver'",
                                         "a8 09 0a 0b 0c 0d 0e 0f 10",
                                         "d1 11 12",
                                         "12 000186a0",
                                         "55 '$null'",
                                         "d3 13 14 15 16 17 18",
                                         "57 'Command'",
                                         "54 'Name'",
                                         "10 05",
                                         "d2 13 19 1a 1b",
                                         "d1 1c 1d",
                                         "d1 1c 1e",
                                         "54 'root'",
                                         "80 01",
                                         "56 '$class'",
                                         "57 'NS.keys'",
                                         "5a 'NS.objects'",
                                         "80 06",
                                         "a2 1f 20",
                                         "a2 21 22",
                                         "59 'NS.string'",
                                         "80 07",
                                         "53 'Ada'",
                                         "5a '$classname'",
                                         "5f 10 13 'NSMutableDictionary'",
                                         "5f 10 0f 'NSMutableString'",
                                         "80 02",
                                         "80 03",
                                         "80 04",
                                         "80 05"});
  const auto value = decode(bytes);
  ASSERT_TRUE(value) << value.error().text;
  EXPECT_EQ(*value, ZAN_Value::dictionary({{"Command", 5}, {"Name", "Ada"}}));
  EXPECT_TRUE(value->isMutable());
  EXPECT_TRUE(value->value("Name").isMutable());
}

TEST(KeyedArchive, KnownClasses) {
  const std::string xml = keyed(
      ofClass(2, "<key>NS.objects</key><array>@3@4@6@8@10@12@14@16@0@18</array>") +
      className("NSArray") + "<real>1.5</real>" +
      ofClass(5, "<key>NS.time</key><integer>1000</integer>") + className("NSDate") +
      ofClass(7, "<key>NS.data</key><data>YWJj</data>") + className("NSMutableData") +
      ofClass(9, "<key>NSRangeCount</key><integer>2</integer><key>NSRangeData</key>@11") +
      className("NSMutableIndexSet") + ofClass(13, "") +
      ofClass(7, "<key>NS.data</key><data>AQOsAgE=</data>") + ofClass(13, "") +
      className("NSNull") +
      ofClass(15, "<key>NS.object.0</key>@3<key>NS.object.1</key><string>x</string>") +
      className("NSSet") + ofClass(17, "<key>NS.key.0</key>@3<key>NS.object.0</key>@4") +
      className("NSDictionary") +
      ofClass(19,
              "<key>NSRangeCount</key><integer>1</integer><key>NSLocation</key><integer>7</integer>"
              "<key>NSLength</key><integer>2</integer>") +
      className("NSIndexSet"));
  const auto value = decode(bytesOf(xml));
  ASSERT_TRUE(value) << value.error().text;
  EXPECT_EQ(*value, ZAN_Value::array({1.5, ZAN_Value::date(1000), ZAN_Value::data("abc"),
                                      ZAN_Value::indexSet({{1, 3}, {300, 1}}), nullptr, nullptr,
                                      ZAN_Value::set({1.5, "x"}),
                                      ZAN_Value::dictionaryOf({{1.5, ZAN_Value::date(1000)}}),
                                      nullptr, ZAN_Value::indexSet({{7, 2}})}));
}

TEST(KeyedArchive, OtherTopKeysAndUnknownClasses) {
  const std::string view = ofClass(2, "<key>Title</key>@3<key>Tags</key><array>@3</array>") +
                           className("View") + "<string>hi</string>";
  const auto only = decode(bytesOf(keyed(view, "<key>thing</key>@1")));
  ASSERT_TRUE(only) << only.error().text;
  ASSERT_TRUE(only->isOpaque());
  EXPECT_EQ(only->asOpaque()->classes[0].name, "View");
  EXPECT_EQ(only->asOpaque()->groups[0].leaves[0],
            ZAN_Value::dictionary({{"Title", "hi"}, {"Tags", ZAN_Value::array({"hi"})}}));

  const auto several =
      decode(bytesOf(keyed(view, "<key>version</key><integer>3</integer><key>text</key>@3")));
  ASSERT_TRUE(several) << several.error().text;
  EXPECT_EQ(*several, ZAN_Value::dictionary({{"version", 3}, {"text", "hi"}}));
}

TEST(KeyedArchive, DamageAndTraps) {
  const std::string array = className("NSArray");
  EXPECT_THAT(reason(keyed(ofClass(2, "<key>NS.objects</key><array>@9</array>") + array)),
              HasSubstr("not there"));
  EXPECT_THAT(reason(keyed(ofClass(2, "<key>NS.objects</key><array>@1</array>") + array)),
              HasSubstr("within itself"));
  EXPECT_THAT(reason(keyed(ofClass(7, ""))), HasSubstr("without a class"));
  EXPECT_THAT(reason(keyed(ofClass(2, "<key>NS.objects</key><true/>") + array)),
              HasSubstr("other values"));
  EXPECT_THAT(
      reason(keyed(ofClass(2, "<key>NS.keys</key><array>@2</array><key>NS.objects</key><array/>") +
                   className("NSDictionary"))),
      HasSubstr("more keys"));
  EXPECT_THAT(reason(keyed(ofClass(2, "<key>NSRangeCount</key><integer>1</integer>") +
                           className("NSIndexSet"))),
              HasSubstr("cannot be"));
  EXPECT_THAT(reason(xmlList("<dict/>")), HasSubstr("no keyed archive"));

  // 100 lists, each of which holds the next one twice, and one list that goes too deep.
  std::string twice;
  std::string deep;
  for (int i = 1; i < 200; ++i) {
    const std::string next = "@" + std::to_string(i + 1);
    deep += ofClass(200, "<key>NS.objects</key><array>" + next + "</array>");
    if (i <= 100) twice += ofClass(102, "<key>NS.objects</key><array>" + next + next + "</array>");
  }
  EXPECT_EQ(reason(keyed(twice + "<string>leaf</string>" + array)), "");
  EXPECT_THAT(reason(keyed(deep + array)), HasSubstr("too deeply"));
}

}  // namespace
}  // namespace corvana
