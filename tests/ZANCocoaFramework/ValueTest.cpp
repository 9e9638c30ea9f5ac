#include <gtest/gtest.h>

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {
namespace {

TEST(Value, ReadingNeverFails) {
  const ZAN_Value nothing;
  EXPECT_TRUE(nothing["a"]["b"].at(7).isNull());
  EXPECT_EQ(nothing.integerValue(), 0);
  EXPECT_EQ(ZAN_Value("12 apples").integerValue(), 12);
  EXPECT_EQ(ZAN_Value(1e300).integerValue(), INT64_MAX);
  EXPECT_EQ(ZAN_Value(-3.9).integerValue(), -3);
  EXPECT_EQ(ZAN_Value("x").stringView().size(), 1U);
}

TEST(Value, CopiesAreIndependentOnceChanged) {
  ZAN_Value record = ZAN_Value::dictionary({{"Ref", 5}, {"Title", "Photos"}});
  ZAN_Value copy = record;
  EXPECT_EQ(record.identity(), copy.identity());
  copy.setValue("Title", "Music");
  copy.setValue("New", true);
  EXPECT_EQ(record.string("Title"), "Photos");
  EXPECT_FALSE(record.contains("New"));
  EXPECT_NE(record.identity(), copy.identity());
  EXPECT_EQ(copy.entries()[1].key.stringView(), "Title") << "a replaced key keeps its place";

  // A container put into itself holds what it was before.
  record.setValue("Self", record);
  EXPECT_EQ(record["Self"].size(), 2U);

  // Nor does it matter when a value is replaced by itself or by a part of itself.
  const ZAN_Value& same = record;
  record = same;
  EXPECT_EQ(record.size(), 3U);
  record = same["Self"];
  EXPECT_EQ(record.string("Title"), "Photos");
  const ZAN_Value taken = std::move(record);
  EXPECT_EQ(taken.size(), 2U);
  EXPECT_EQ(record.identity(), 0U) << "what is moved away leaves a plain null";
}

TEST(Value, LargeDictionariesFindAndForgetKeys) {
  ZAN_Value record;
  for (int i = 0; i < 1000; ++i) record.setValue("key" + std::to_string(i), i);
  for (int i = 0; i < 1000; i += 7) record.removeKey("key" + std::to_string(i));
  for (int i = 0; i < 1000; ++i) {
    const std::string key = "key" + std::to_string(i);
    EXPECT_EQ(record.contains(key), i % 7 != 0);
    if (i % 7 != 0) {
      EXPECT_EQ(record.integer(key), i);
    }
  }
}

TEST(Value, IndexSetsMergeAndCut) {
  ZAN_Value minutes = ZAN_Value::indexSet({{300, 1}, {1, 3}, {2, 5}, {9, 0}});
  EXPECT_EQ(minutes.size(), 7U);
  minutes.addIndex(7);
  minutes.addIndex(299);
  minutes.addIndex(299);
  ASSERT_EQ(minutes.ranges().size(), 2U);
  EXPECT_EQ(minutes.ranges()[0], (ZAN_Value::Range{1, 7}));
  EXPECT_EQ(minutes.ranges()[1], (ZAN_Value::Range{299, 2}));
  minutes.removeIndexesUpTo(299);
  ASSERT_EQ(minutes.ranges().size(), 1U);
  EXPECT_TRUE(minutes.containsIndex(300));
  EXPECT_FALSE(minutes.containsIndex(299));
}

TEST(Value, EqualityIsOfContents) {
  const ZAN_Value a = ZAN_Value::dictionary({{"x", 1}, {"y", ZAN_Value::array({1, "two"})}});
  const ZAN_Value b = ZAN_Value::dictionary({{"y", ZAN_Value::array({1.0, "two"})}, {"x", true}});
  EXPECT_EQ(a, b);
  EXPECT_FALSE(ZAN_Value::unsignedInteger(UINT64_MAX) == ZAN_Value(-1LL));
  EXPECT_FALSE(ZAN_Value::date(1) == ZAN_Value(1));
}

}  // namespace
}  // namespace corvana
