#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_Opaque.h"
#include "tests/ZANCocoaFramework/ArchiveBytes.h"

namespace corvana {
namespace {

std::string encoded(const ZAN_Value& value) {
  return toHex(ZAN_Archiver::archivedDataWithRootObject(value));
}

/// The value, after checking that it gives the same bytes again.
ZAN_Value roundTrip(const ArchiveBytes& bytes) {
  auto decoded = ZAN_Unarchiver::unarchiveObjectWithData(bytes);
  EXPECT_TRUE(decoded) << (decoded ? "" : decoded.error().text);
  if (!decoded) return {};
  EXPECT_EQ(encoded(*decoded), toHex(bytes));
  return *decoded;
}

ZAN_Value mutableOf(ZAN_Value value) {
  value.setMutable(true);
  return value;
}

constexpr std::string_view kRecord =
    "040b73747265616d747970656481e8038401408484840c4e5344696374696f6e617279008484084e534f626a656374"
    "0085"
    "8401690592848484084e53537472696e67019484012b046e616d658692849697034164618692849697036167658692"
    "848484"
    "084e534e756d626572008484074e5356616c7565009484012a849595812c01869284969704626f726e869284848406"
    "4e5344"
    "617465009484016483000000"
    "8087d632c1869284969704626c6f628692848484064e53446174610094950384045b33635d0102038692849697046c"
    "697374"
    "8692848484074e5341727261790094950292849a9a84840171a0ff8692849a9a84840163a101868686";
constexpr std::string_view kTwice =
    "040b73747265616d747970656481e803840140848484074e534172726179008484084e534f626a6563740085840169"
    "039284"
    "8484084e53537472696e67019484012b057477696365869295928496970574776963658686";
constexpr std::string_view kMutable =
    "040b73747265616d747970656481e803840140848484074e534172726179008484084e534f626a6563740085840169"
    "029284"
    "8484134e534d757461626c6544696374696f6e6172790084840c4e5344696374696f6e617279009495019284848408"
    "4e5353"
    "7472696e67019484012b016b869284999901768686928496950192849999026b3286928484840e4e534d757461626c"
    "654172"
    "7261790093950192848484"
    "0f4e534d757461626c65537472696e67019999017886868686";
constexpr std::string_view kIndexSets =
    "040b73747265616d747970656481e803840140848484074e534172726179008484084e534f626a6563740085840169"
    "039284"
    "84840a4e53496e646578536574009484014900869284969701970297038692848484114e534d757461626c65496e64"
    "657853"
    "6574009697039701970397812c01970197827011010097028686";

TEST(Archive, RecordHasThePlatformsBytes) {
  const ZAN_Value record = ZAN_Value::dictionary({{"name", "Ada"},
                                                  {"age", 300},
                                                  {"born", ZAN_Value::date(-1234567.5)},
                                                  {"blob", ZAN_Value::data("\x01\x02\x03")},
                                                  {"list", ZAN_Value::array({-1LL, true})}});
  EXPECT_EQ(encoded(record), kRecord);
  EXPECT_EQ(roundTrip(fromHex(kRecord)), record);
}

TEST(Archive, SharingIsByIdentity) {
  const ZAN_Value twice("twice");
  EXPECT_EQ(encoded(ZAN_Value::array({twice, twice, "twice"})), kTwice);
  const ZAN_Value decoded = roundTrip(fromHex(kTwice));
  EXPECT_EQ(decoded.at(0).identity(), decoded.at(1).identity());
  EXPECT_NE(decoded.at(0).identity(), decoded.at(2).identity());
}

TEST(Archive, MutableClassesAndIndexSets) {
  const ZAN_Value containers = ZAN_Value::array(
      {mutableOf(ZAN_Value::dictionary({{"k", "v"}})),
       mutableOf(ZAN_Value::dictionary({{"k2", mutableOf(ZAN_Value::array({mutableOf("x")}))}}))});
  EXPECT_EQ(encoded(containers), kMutable);
  EXPECT_EQ(roundTrip(fromHex(kMutable)), containers);

  const ZAN_Value sets =
      ZAN_Value::array({ZAN_Value::indexSet(), ZAN_Value::indexSet({{2, 3}}),
                        mutableOf(ZAN_Value::indexSet({{1, 3}, {300, 1}, {70000, 2}}))});
  EXPECT_EQ(encoded(sets), kIndexSets);
  EXPECT_EQ(roundTrip(fromHex(kIndexSets)), sets);
}

TEST(Archive, NumbersAtTheEdgesOfTheirForms) {
  const std::string head = encoded(ZAN_Value::integer(0, 'q'));
  const auto last = [&](const ZAN_Value& number) {
    const std::string hex = encoded(number);
    EXPECT_EQ(roundTrip(fromHex(hex)), number);
    EXPECT_EQ(roundTrip(fromHex(hex)).letter(), number.letter());
    return hex.substr(head.size() - 4, hex.size() - head.size() + 2);
  };
  const auto q = [&](std::int64_t value) { return last(ZAN_Value::integer(value, 'q')); };
  EXPECT_EQ(q(-110), "92");
  EXPECT_EQ(q(-111), "8191ff");
  EXPECT_EQ(q(127), "7f");
  EXPECT_EQ(q(128), "818000");
  EXPECT_EQ(q(-32767), "810180");
  EXPECT_EQ(q(-32768), "820080ffff");
  EXPECT_EQ(q(32768), "8200800000");
  EXPECT_EQ(q(std::int64_t{1} << 31), "870000008000000000");
  EXPECT_EQ(last(ZAN_Value::unsignedInteger(UINT64_MAX)), "ff");
  EXPECT_EQ(last(ZAN_Value::unsignedInteger(std::uint64_t{1} << 63)), "870000000000000080");
  EXPECT_EQ(last(ZAN_Value::integer(4294967295, 'I')), "ff");
  EXPECT_EQ(last(ZAN_Value::integer(40000, 'I')), "82409c0000");
  EXPECT_EQ(last(ZAN_Value::integer(65535, 'S')), "ff");
  EXPECT_EQ(last(ZAN_Value::integer(200, 'C')), "c8");
  EXPECT_EQ(last(ZAN_Value::integer(-100, 'c')), "9c");
  EXPECT_EQ(last(16777216.0), "8200000001");
  EXPECT_EQ(last(16777217.0).substr(0, 2), "83");
  EXPECT_EQ(last(2147483645.0).substr(0, 2), "83");
  EXPECT_EQ(last(41.0), "29");
  EXPECT_EQ(last(-0.0), "00");
  EXPECT_EQ(last(0.1358).size(), 18U);
  EXPECT_EQ(last(ZAN_Value::real(3.5, 'f')), "8300006040");
  EXPECT_EQ(last(std::numeric_limits<double>::infinity()), "83000000000000f07f");
  const std::string nan = encoded(std::numeric_limits<double>::quiet_NaN());
  EXPECT_TRUE(std::isnan(roundTrip(fromHex(nan)).doubleValue()));
}

TEST(Archive, SharedScalarsNullsAndKeysStayTheObjectsTheyWere) {
  // {k: 5, k': the same 5, null: null}, with the key "k" again as the last value, and another key
  // "k".
  const ArchiveBytes bytes = archiveOf(
      "84 84 84 0c 'NSDictionary' 00 84 84 08 'NSObject' 00 85 84 01 'i' 04"
      " 92 84 84 84 08 'NSString' 01 94 84 01 '+' 01 'k' 86"
      " 92 84 84 84 08 'NSNumber' 00 84 84 07 'NSValue' 00 94 84 01 '*' 84 95 95 05 86"
      " 92 84 96 97 01 'k' 86 92 97"
      " 92 84 84 84 06 'NSNull' 00 94 86 92 9c"
      " 92 84 96 97 01 'k' 86 92 95"
      " 86");
  const ZAN_Value record = roundTrip(bytes);
  const auto entries = record.entries();
  ASSERT_EQ(entries.size(), 4U);
  EXPECT_NE(entries[0].value.identity(), 0U);
  EXPECT_EQ(entries[0].value.identity(), entries[1].value.identity());
  EXPECT_TRUE(entries[2].key.isNull());
  EXPECT_EQ(entries[0].key.identity(), entries[3].value.identity());
  EXPECT_NE(entries[0].key.identity(), entries[1].key.identity());
  EXPECT_EQ(record["k"].string(), "k") << "of equal keys the last counts";
}

TEST(Archive, ValuesOfSeveralArchivesMayStandTogether) {
  const auto pair = [](std::int64_t number) {
    ZAN_Value value = ZAN_Value::integer(number, 'q');
    value.setScalarIdentity(1);
    return roundTrip(ZAN_Archiver::archivedDataWithRootObject(ZAN_Value::array({value, value})));
  };
  const ZAN_Value both = ZAN_Value::array({pair(1), pair(2)});
  const ZAN_Value again = roundTrip(ZAN_Archiver::archivedDataWithRootObject(both));
  EXPECT_EQ(again.at(0).at(1).integerValue(), 1);
  EXPECT_EQ(again.at(1).at(1).integerValue(), 2);
}

TEST(Archive, ReadsTheOtherByteOrder) {
  ArchiveBytes bytes = fromHex(
      "04 0b 'typedstream' 8103e8 84 01 '@' 84 84 84 07 'NSArray' 00 84 84 08 'NSObject' 00 85 84 "
      "01 'i' 02"
      " 92 84 84 84 08 'NSNumber' 00 84 84 07 'NSValue' 00 94 84 01 '*' 84 95 95 82 00 01 e2 40 86"
      " 92 84 84 84 06 'NSDate' 00 94 84 01 'd' 83 c1 32 d6 87 80 00 00 00 86 86");
  const auto decoded = ZAN_Unarchiver::unarchiveObjectWithData(bytes);
  ASSERT_TRUE(decoded) << decoded.error().text;
  EXPECT_EQ(decoded->at(0).integerValue(), 123456);
  EXPECT_EQ(decoded->at(1).asDate(), -1234567.5);
}

TEST(Archive, UnknownClassesAreWrittenBackAsTheyWere) {
  // A view with numbers, a structure, bytes, a nil, a class, a selector, and an object of its own
  // that a place outside names again.
  const std::string view =
      "92 84 84 84 04 'View' 07 84 84 04 'Root' 02 85 84 04 '{=f}' 83 0000c03f 84 06 '[2i]@@' 05 "
      "81 2c01 85"
      " 84 84 84 08 'NSString' 01 94 84 01 '+' 02 'hi' 86"
      " 84 04 '[3c]' 00 86 ff 84 03 '#:*' 96 84 05 'draw:' 84 9e 84 01 'B' 03 84 02 '+%' 01 'x' 85 "
      "86";
  const ZAN_Value list = roundTrip(archiveOf(std::string(kArrayHead) + "02 " + view + " 92 98 86"));
  const ZAN_Opaque* object = list.at(0).asOpaque();
  ASSERT_NE(object, nullptr);
  ASSERT_EQ(object->classes.size(), 2U);
  EXPECT_EQ(object->classes[0].name, "View");
  EXPECT_EQ(object->classes[0].version, 7);
  EXPECT_EQ(list.at(1).string(), "hi");
  EXPECT_EQ(object->groups[1].leaves[1].integerValue(), 300);
  EXPECT_TRUE(object->groups[1].leaves[2].isNull());

  // Classes that are known but write something else: another version, another group, one group
  // more.
  const std::string number = "92 84 84 84 08 'NSNumber' 00 84 84 07 'NSValue' ";
  for (const std::string& element :
       {std::string("92 84 84 84 08 'NSString' 02 94 84 01 '+' 01 'x' 86"),
        number + "00 94 84 01 '*' 84 84 0b '{CGSize=dd}' 84 02 'dd' 01 02 86",
        std::string("92 84 84 84 0c 'NSDictionary' 00 94 95 00 95 09 86"),
        std::string("92 84 84 84 05 'NSSet' 00 94 95 00 86"), std::string("92 84 94 86"),
        std::string("92 84 93 95 05 86")}) {
    const ZAN_Value odd = roundTrip(archiveOf(std::string(kArrayHead) + "01 " + element + " 86"));
    EXPECT_TRUE(odd.at(0).isOpaque()) << element;
  }
  EXPECT_FALSE(
      ZAN_Unarchiver::unarchiveObjectWithData(archiveOf(std::string(kArrayHead) + "00 95 09 86")))
      << "what a file is for must be what it claims to be";
}

TEST(Archive, NilRootAndNullObjectDiffer) {
  const ArchiveBytes nulls =
      archiveOf(std::string(kArrayHead) + "02 92 84 84 84 06 'NSNull' 00 94 86 92 95 86");
  EXPECT_EQ(encoded(ZAN_Value::array({nullptr, nullptr})), toHex(nulls));
  roundTrip(nulls);
  EXPECT_TRUE(roundTrip(archiveOf("85")).isNull());
  EXPECT_TRUE(
      roundTrip(archiveOf("84 84 84 06 'NSNull' 00 84 84 08 'NSObject' 00 85 86")).isNull());
}

TEST(Archive, TextThatIsNoUtf8IsRepairedWhenWritten) {
  const ZAN_Value list =
      ZAN_Value::array({"caf\xe9", "caf\xc3\xa9", "\xed\xa0\x80", "\xf0\x9f\x8d\x8e"});
  const auto again =
      ZAN_Unarchiver::unarchiveObjectWithData(ZAN_Archiver::archivedDataWithRootObject(list));
  ASSERT_TRUE(again);
  EXPECT_EQ(again->at(0).string(), "caf\xef\xbf\xbd");
  EXPECT_EQ(again->at(1).string(), "caf\xc3\xa9");
  EXPECT_EQ(again->at(2).string(), "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd");
  EXPECT_EQ(again->at(3).string(), "\xf0\x9f\x8d\x8e");
}

TEST(Archive, EqualKeysShareTheirCharacters) {
  std::vector<ZAN_Value> records;
  for (int i = 0; i < 100; ++i) {
    ZAN_Value record;
    for (int k = 0; k < 80; ++k) record.setValue("SomeLongerNameOfAKey" + std::to_string(k), k);
    records.push_back(record);
  }
  const ZAN_Value list =
      roundTrip(ZAN_Archiver::archivedDataWithRootObject(ZAN_Value::array(std::move(records))));
  EXPECT_LT(list.footprint() / 100, 3000U);
}

}  // namespace
}  // namespace corvana
