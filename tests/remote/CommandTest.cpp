#include <gmock/gmock.h>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "remote/RemoteCommand.h"

namespace corvana {
namespace {

using testing::ElementsAre;

std::optional<RemoteCommand> decoded(const ZAN_Value& value) {
  return RemoteCommand::decode(ZAN_Archiver::archivedDataWithRootObject(value));
}

std::vector<std::int64_t> references(const ZAN_Value& text) {
  const auto command = decoded(ZAN_Value::dictionary({{"RemoteControlMachineLaunchAction", text}}));
  return command ? std::get<RemoteCommand::Launch>(command->what).references
                 : std::vector<std::int64_t>{};
}

TEST(RemoteCommand, TheFirstKeyOfTheTableCounts) {
  const ZAN_Value all = ZAN_Value::dictionary({{"RemoteControlMachineMessage", "Hello"},
                                               {"RemoteControlMachineLaunchAction", "12"},
                                               {"RemoteControlMachineActivate", 1}});
  EXPECT_EQ(std::get<RemoteCommand::Activate>(decoded(all)->what).value, 1);
  ZAN_Value wrong = all;
  wrong.setValue("RemoteControlMachineActivate", ZAN_Value::array());
  EXPECT_FALSE(decoded(wrong)) << "no other key is looked at";
  wrong.removeKey("RemoteControlMachineActivate");
  EXPECT_TRUE(std::holds_alternative<RemoteCommand::Launch>(decoded(wrong)->what));
}

TEST(RemoteCommand, ReferencesAreTheNumbersBetweenTheCommas) {
  EXPECT_THAT(references("12,0,x,7"), ElementsAre(12, 7));
  EXPECT_THAT(references("12,12, 7 ,"), ElementsAre(12, 7));
  EXPECT_THAT(references(""), ElementsAre());
  EXPECT_THAT(references(12), ElementsAre());
  std::string many;
  for (int i = 1; i < 10'000; ++i) many += std::to_string(i) + ',';
  EXPECT_EQ(references(many).size(), 9'999U);
}

TEST(RemoteCommand, MessagesAreCutAndNamed) {
  const auto message = [](const ZAN_Value& text, const ZAN_Value& sender) {
    const auto command = decoded(ZAN_Value::dictionary(
        {{"RemoteControlMachineMessage", text}, {"RemoteControllerMachineName", sender}}));
    return std::get<RemoteCommand::Message>(command->what);
  };
  EXPECT_EQ(message("Hello", "Box").sender, "Box");
  EXPECT_EQ(message("Hello", "").sender, "???");
  EXPECT_EQ(message("Hello", 7).sender, "???");
  std::string longText;
  for (int i = 0; i < 10'000; ++i) longText += "ü";
  const auto cut = message("x" + longText, "x" + longText);
  EXPECT_EQ(cut.text.size(), 3999U);
  EXPECT_EQ(cut.sender.size(), 255U);
  EXPECT_TRUE(isUtf8(cut.text));
}

TEST(RemoteCommand, AnythingElseIsNoCommand) {
  for (const ZAN_Value& value :
       {ZAN_Value(), ZAN_Value("RemoteControlMachineActivate"), ZAN_Value::array({1}),
        ZAN_Value::dictionary(), ZAN_Value::dictionary({{"Other", 1}})})
    EXPECT_FALSE(decoded(value));
  EXPECT_FALSE(RemoteCommand::decode({}));
  const std::vector<std::byte> garbage(65536, std::byte{0x42});
  EXPECT_FALSE(RemoteCommand::decode(garbage));
}

TEST(RemoteCommand, TheKeyedArchiveIsUnderstoodToo) {
  constexpr std::string_view kArchive = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>
<key>$archiver</key><string>NSKeyedArchiver</string><key>$version</key><integer>100000</integer>
<key>$top</key><dict><key>root</key><dict><key>CF$UID</key><integer>1</integer></dict></dict>
<key>$objects</key><array><string>$null</string>
<dict><key>$class</key><dict><key>CF$UID</key><integer>4</integer></dict>
<key>NS.keys</key><array><dict><key>CF$UID</key><integer>2</integer></dict></array>
<key>NS.objects</key><array><dict><key>CF$UID</key><integer>3</integer></dict></array></dict>
<string>RemoteControlMachineLaunchAction</string><string>12,7</string>
<dict><key>$classname</key><string>NSDictionary</string>
<key>$classes</key><array><string>NSDictionary</string><string>NSObject</string></array></dict>
</array></dict></plist>)";
  const auto command = RemoteCommand::decode(std::as_bytes(std::span(kArchive)));
  ASSERT_TRUE(command);
  EXPECT_THAT(std::get<RemoteCommand::Launch>(command->what).references, ElementsAre(12, 7));
}

}  // namespace
}  // namespace corvana
