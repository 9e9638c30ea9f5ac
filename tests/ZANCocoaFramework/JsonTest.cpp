#include "ZANCocoaFramework/ZAN_Json.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_Opaque.h"
#include "tests/ZANCocoaFramework/ArchiveBytes.h"

namespace corvana {
namespace {

using ::testing::HasSubstr;

std::string compact(const ZAN_Value& value, bool mask = false) {
  ZAN_Json::Options options;
  options.compact = true;
  options.maskPasswords = mask;
  const auto json = ZAN_Json::jsonWithValue(value, options);
  return json ? *json : json.error().text;
}

/// The JSON, after checking that reading it gives a value with the same archive.
std::string roundTrip(const ZAN_Value& value) {
  const std::string json = compact(value);
  const auto again = ZAN_Json::valueWithJson(json);
  EXPECT_TRUE(again) << json << ": " << again.error().text;
  if (again) {
    EXPECT_EQ(toHex(ZAN_Archiver::archivedDataWithRootObject(*again)),
              toHex(ZAN_Archiver::archivedDataWithRootObject(value)))
        << json;
  }
  return json;
}

std::string reason(std::string_view json) {
  const auto value = ZAN_Json::valueWithJson(json);
  return value ? std::string() : value.error().text;
}

TEST(Json, NumbersKeepTheirLetters) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(roundTrip(true), "true");
  EXPECT_EQ(roundTrip(-2147483647 - 1), "-2147483648");
  EXPECT_EQ(roundTrip(2147483648LL), "2147483648");
  EXPECT_EQ(roundTrip(5LL), R"({"$number": "5", "type": "q"})");
  EXPECT_EQ(roundTrip(ZAN_Value::integer(-3, 'c')), R"({"$number": "-3", "type": "c"})");
  EXPECT_EQ(roundTrip(ZAN_Value::unsignedInteger(UINT64_MAX)),
            R"({"$number": "18446744073709551615", "type": "Q"})");
  EXPECT_EQ(roundTrip(ZAN_Value::integer(4000000000, 'I')),
            R"({"$number": "4000000000", "type": "I"})");
  EXPECT_EQ(roundTrip(41.0), "41.0");
  EXPECT_EQ(roundTrip(1e300), "1e+300");
  EXPECT_EQ(roundTrip(0.1), "0.1");
  EXPECT_EQ(roundTrip(ZAN_Value::real(0.1F, 'f')), R"({"$number": "0.1", "type": "f"})");
  EXPECT_EQ(roundTrip(-kInfinity), R"({"$number": "-inf", "type": "d"})");
  EXPECT_EQ(roundTrip(std::numeric_limits<double>::quiet_NaN()),
            R"({"$number": "nan", "type": "d"})");
  EXPECT_EQ(ZAN_Json::valueWithJson("-7")->letter(), 'i');
  EXPECT_EQ(ZAN_Json::valueWithJson("7e0")->letter(), 'd');
  EXPECT_EQ(ZAN_Json::valueWithJson("18446744073709551615")->letter(), 'Q');
}

TEST(Json, EveryKindHasAForm) {
  EXPECT_EQ(
      roundTrip(ZAN_Value::dictionary(
          {{"z", ZAN_Value::date(0.25)}, {"a", nullptr}, {"m", ZAN_Value::data("\xff\x01")}})),
      R"({"z": {"$date": 0.25}, "a": null, "m": {"$data": "/wE="}})");
  EXPECT_EQ(roundTrip(ZAN_Value::date(std::nan(""))), R"({"$date": "nan"})");
  EXPECT_EQ(roundTrip(ZAN_Value::array({ZAN_Value::array(), ZAN_Value::dictionary()})), "[[], {}]");
  EXPECT_EQ(roundTrip(ZAN_Value::set({"a", 1})), R"({"$set": ["a", 1]})");
  EXPECT_EQ(roundTrip(ZAN_Value::indexSet({{0, 1}, {300, 60}})),
            R"({"$indexes": [[0, 1], [300, 60]]})");
  EXPECT_EQ(roundTrip("quote \" \\ \n \x01 é"), R"("quote \" \\ \n \u0001 é")");
  for (const std::string_view text : {"", "f", "fo", "foo", "foob"})
    roundTrip(ZAN_Value::data(text));
}

TEST(Json, KeysThatJsonCannotHaveBecomePairs) {
  EXPECT_EQ(roundTrip(ZAN_Value::dictionaryOf({{5, "five"}, {"k", ZAN_Value::array({1})}})),
            R"({"$dictionary": [[5, "five"], ["k", [1]]]})");
  EXPECT_EQ(roundTrip(ZAN_Value::dictionary({{"$date", 1}})), R"({"$dictionary": [["$date", 1]]})");
  EXPECT_EQ(roundTrip(ZAN_Value::dictionaryOf({{"k", 1}, {"k", 2}})),
            R"({"$dictionary": [["k", 1], ["k", 2]]})");
}

TEST(Json, DataThatIsAnArchiveIsOpened) {
  const ZAN_Value inner = ZAN_Value::array({ZAN_Value::dictionary({{"Type", 3}})});
  ArchiveBytes bytes = ZAN_Archiver::archivedDataWithRootObject(inner);
  const ZAN_Value outer = ZAN_Value::dictionary({{"Links", ZAN_Value::data(bytes)}});
  EXPECT_EQ(roundTrip(outer), R"({"Links": {"$archive": [{"Type": 3}]}})");
  // An unusual spelling of the same array would be lost.
  const ArchiveBytes unusual = archiveOf(std::string(kArrayHead) + "81 0000 86");
  EXPECT_THAT(roundTrip(ZAN_Value::data(unusual)), HasSubstr("$data"));
}

TEST(Json, UnknownObjects) {
  auto view = std::make_shared<ZAN_Opaque>();
  ZAN_Value null;
  null.setScalarIdentity(7);
  view->classes = {{"View", 3}, {"NSObject", 0}};
  view->groups = {{"@@", {null, nullptr}},
                  {"[2c]f*", {ZAN_Value::data("ab"), ZAN_Value::real(1.5, 'f'), "x"}}};
  EXPECT_EQ(
      roundTrip(ZAN_Value::opaque(view)),
      R"({"$object": {"classes": [["View", 3], ["NSObject", 0]], "groups": )"
      R"([["@@", {"$null": true}, null], ["[2c]f*", {"$data": "YWI="}, {"$number": "1.5", "type": "f"}, "x"]]}})");
}

TEST(Json, PasswordsAreHidden) {
  const ZAN_Value inner = ZAN_Value::dictionary({{"smtpPassword", "secret"}, {"Port", 25}});
  const ZAN_Value value = ZAN_Value::dictionary(
      {{"PasswordData", ZAN_Value::data("secret")},
       {"Mail", ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(inner))},
       {"List", ZAN_Value::dictionaryOf({{1, "x"}, {"password", ZAN_Value::array({"secret"})}})}});
  EXPECT_EQ(
      compact(value, true),
      R"({"PasswordData": "****", "Mail": {"$archive": {"smtpPassword": "****", "Port": 25}}, )"
      R"("List": {"$dictionary": [[1, "x"], ["password", "****"]]}})");
}

TEST(Json, WhatIsWrongIsSaid) {
  EXPECT_THAT(reason(R"({"a": 1, })"), HasSubstr("column 10"));
  EXPECT_THAT(reason(""), HasSubstr("unexpected end"));
  EXPECT_THAT(reason(R"({"a": 1, "a": 2})"), HasSubstr("\"a\" stands twice"));
  EXPECT_THAT(reason("123456789012345678901"), HasSubstr("too large"));
  EXPECT_THAT(reason("\"\xff\""), HasSubstr("UTF-8"));
  for (const char* wrong :
       {R"({"$what": 1})", R"({"a": 1, "$date": 2})", R"({"$number": "300", "type": "c"})",
        R"({"$number": "1.5", "type": "q"})", R"({"$number": "1", "type": "@"})",
        R"({"$number": "1"})", R"({"$date": "noon"})", R"({"$data": "a"})",
        R"({"$data": "YQ==YQ=="})", R"({"$set": {}})", R"({"$indexes": [[1, 0]]})",
        R"({"$indexes": [[-1, 5]]})", R"({"$dictionary": [[1]]})",
        R"({"$object": {"classes": [], "groups": []}})",
        R"({"$object": {"classes": [["A"]], "groups": []}})"}) {
    EXPECT_THAT(reason(wrong), HasSubstr("known forms")) << wrong;
  }
  EXPECT_EQ(reason(std::string(127, '[') + std::string(127, ']')), "");
  EXPECT_THAT(reason(std::string(128, '[') + std::string(128, ']')), HasSubstr("too deeply"));
  EXPECT_THAT(reason(std::string(1000000, '[')), HasSubstr("too deeply"));
}

TEST(Json, SharedPartsAreNotMultipliedWithoutEnd) {
  ZAN_Value chain = ZAN_Value::array({"leaf"});
  for (int i = 0; i < 60; ++i) chain = ZAN_Value::array({chain, chain});
  EXPECT_THAT(compact(chain), HasSubstr("too large"));
}

}  // namespace
}  // namespace corvana
