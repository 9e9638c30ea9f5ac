#include <gtest/gtest.h>

#include <numeric>

#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "remote/Admission.h"
#include "remote/PublishedService.h"

namespace corvana {
namespace {

TEST(PasswordCode, IsComputedFromTheLengthenedUnits) {
  EXPECT_EQ(UtilsCommon::getPasswordCode(""), 0U);
  EXPECT_EQ(UtilsCommon::getPasswordCode("ab"), 790084125U);
  EXPECT_EQ(UtilsCommon::getPasswordCode("secret"), 593100763U);
  // 32 units are long enough, 31 become 63.
  EXPECT_EQ(UtilsCommon::getPasswordCode(std::string(32, 'a')), 2182623408U);
  EXPECT_EQ(UtilsCommon::getPasswordCode(std::string(31, 'a')), 2261973528U);
  EXPECT_EQ(UtilsCommon::getPasswordCode("Käse😀"), 3522740235U) << "the smiley is two units";
}

TEST(ServiceName, IsBuiltFromTheFields) {
  const ServiceName name{ServiceName::machineName("Élodie et Søren", "box"),
                         "5eed0123beef",
                         501,
                         true,
                         false,
                         -772227061};
  EXPECT_EQ(name.text(), "Elodie-et-Søren&&5eed0123beef&&501&&1&&0&&-772227061");
  EXPECT_EQ(name.text(2), "Elodie-et-Søren-2&&5eed0123beef&&501&&1&&0&&-772227061");
  EXPECT_EQ(ServiceName::machineName("", "annas box"), "annas box");
  EXPECT_EQ(ServiceName::machineName("\x01\x7f", ""), "localhost");
}

TEST(ServiceName, FitsWhateverTheMachineIsCalled) {
  for (const char* piece : {"a", "ü", "€", "😀", "\xff", "&&", "e\xcc\x81"}) {
    std::string local;
    for (int i = 0; i < 100; ++i) local += piece;
    const ServiceName name{
        ServiceName::machineName(local, "box"), "5eed0123beef", 4294967294, false, true, INT32_MIN};
    for (const int number : {1, 2, 99}) {
      const std::string text = name.text(number);
      EXPECT_LE(text.size(), ServiceName::kMostBytes);
      EXPECT_GE(text.size(), ServiceName::kMostBytes - 3) << piece;
      EXPECT_TRUE(isUtf8(text)) << piece;
      const auto parsed = ServiceName::parse(text);
      ASSERT_TRUE(parsed) << text;
      EXPECT_EQ(parsed->text(), text);
      EXPECT_EQ(parsed->passwordCode, INT32_MIN);
      EXPECT_TRUE(parsed->locked);
    }
  }
  EXPECT_FALSE(ServiceName::parse("box&&id&&501&&1&&0"));
  EXPECT_FALSE(ServiceName::parse("box&&id&&501&&yes&&0&&0"));
}

TEST(LaunchableActions, ATitleOfAnyLengthLeavesTheNumbers) {
  LaunchableAction action{785000000, "Letters\tand\nphotos", 2, 725889600};
  EXPECT_EQ(action.text(), "Ref-785000000=Letters and photos\t2\t785000000\t725889600");
  action.title.clear();
  for (int i = 0; i < 200; ++i) action.title += "€";
  const std::string text = action.text();
  EXPECT_LE(text.size(), 255U);
  EXPECT_GT(text.size(), 252U);
  EXPECT_TRUE(isUtf8(text));
  const auto parsed = LaunchableAction::parse(text);
  ASSERT_TRUE(parsed);
  EXPECT_EQ(parsed->ref, action.ref);
  EXPECT_EQ(parsed->lastScheduleDate, action.lastScheduleDate);
  for (const char* other : {"RemoteControlMachineUpdated=YES", "Ref-1", "Ref-1=a\t2\t1",
                            "Ref-1=", "Ref-1=5", "Ref-1=a\t2\t0\t0", "Ref-1=a\t2\tx\t0"})
    EXPECT_FALSE(LaunchableAction::parse(other)) << other;
}

TEST(LaunchableActions, TheLatestAreTakenInTheirOrderWhenNotAllFit) {
  std::vector<LaunchableAction> actions;
  for (int i = 1; i <= 40; ++i) actions.push_back({i, std::string(60, 'x'), 2, i % 2 * 1000 + i});
  const LaunchableTexts texts(actions);
  const std::size_t bytes = std::accumulate(
      texts.texts.begin(), texts.texts.end(), std::size_t{0},
      [](std::size_t sum, const std::string& text) { return sum + 1 + text.size(); });
  EXPECT_LE(bytes, 1300U);
  EXPECT_GT(bytes, 1300U - 80U);
  EXPECT_EQ(texts.leftOut, actions.size() - texts.texts.size());
  // Odd ones were scheduled later.
  EXPECT_EQ(LaunchableAction::parse(texts.texts.back())->ref, 39);
  std::int64_t before = 0;
  for (const std::string& text : texts.texts) {
    const std::int64_t ref = LaunchableAction::parse(text)->ref;
    EXPECT_EQ(ref % 2, 1);
    EXPECT_GT(ref, before);
    before = ref;
  }
  EXPECT_TRUE(LaunchableTexts({}).texts.empty());
}

TEST(AllowedAddresses, AreAddressesAndNetworks) {
  EXPECT_TRUE(AllowedAddresses(ZAN_Value()).allows("10.0.0.1"));
  EXPECT_TRUE(AllowedAddresses(ZAN_Value(" ")).allows("10.0.0.1"));
  const AllowedAddresses some(ZAN_Value("192.168.1.7, 10.1.0.0/16"));
  EXPECT_TRUE(some.allows("192.168.1.7"));
  EXPECT_TRUE(some.allows("10.1.255.3"));
  EXPECT_FALSE(some.allows("192.168.1.70"));
  EXPECT_FALSE(some.allows("10.2.0.1"));
  EXPECT_FALSE(some.allows("::1"));
  const AllowedAddresses wrong(ZAN_Value("192.168.1, 10.0.0.0/33 1.2.3.4.5 300.1.1.1"));
  EXPECT_EQ(wrong.wrong().size(), 4U);
  EXPECT_FALSE(wrong.allows("192.168.1.1")) << "a misspelled list lets nobody in";
  const AllowedAddresses six(ZAN_Value("fe80::1 fd12::/12, 10.1.0.0/16"));
  EXPECT_TRUE(six.allows("fe80::1%cable"));
  EXPECT_FALSE(six.allows("fe80::2"));
  EXPECT_TRUE(six.allows("fd1f::5"));
  EXPECT_FALSE(six.allows("fd20::5"));
  EXPECT_TRUE(six.allows("10.1.2.3"));
  EXPECT_FALSE(six.allows("::a01:203"));
}

TEST(Allowance, LetsSoManyAtOnceAndThenSlowly) {
  Allowance allowance(3, 10);
  for (const bool expected : {true, true, true, false}) EXPECT_EQ(allowance.take(1000), expected);
  EXPECT_FALSE(allowance.take(1009));
  EXPECT_TRUE(allowance.take(1011));
  EXPECT_FALSE(allowance.take(1012));
}

TEST(Allowances, AFloodFromManyAddressesLeavesTheTrustedOneAlone) {
  Allowances all({3, 10}, {5, 1});
  EXPECT_TRUE(all.take("owner", 1000));
  all.trust("owner");
  int taken = 0;
  for (int i = 0; i < 5000; ++i) taken += all.take("stranger " + std::to_string(i), 1000) ? 1 : 0;
  EXPECT_EQ(taken, 4);
  EXPECT_TRUE(all.take("owner", 1000));
  EXPECT_TRUE(all.take("owner", 1000));
  EXPECT_FALSE(all.take("owner", 1000)) << "its own allowance";
}

}  // namespace
}  // namespace corvana
