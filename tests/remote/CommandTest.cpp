#include <gmock/gmock.h>
#include <sys/stat.h>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "actions/ActionStore.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "remote/Pairing.h"
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
  // Nothing that turns, hides or colours what stands beside it.
  const auto sly = message("a\u202eb\u0085c\u2066", "S\u200bü\u009b1m\x1b");
  EXPECT_EQ(sly.text, "a b c ");
  EXPECT_EQ(sly.sender, "S ü 1m ");
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

/// A machine that wants proofs, and one that knows its password.
struct CommandProofTest : testing::Test {
  using Verdict = ProofChecker::Verdict;
  // Slow on purpose: once for all tests.
  static const ControlKey& key() {
    static const ControlKey made = *ControlKey::of("geheim", "5eed0123beef");
    return made;
  }
  ProofChecker checker{key()};
  const RemoteCommand command{RemoteCommand::Launch{{12, 7}}};

  CommandProof proof(std::int64_t counter, const std::string& sender = "kitchen") {
    return {checker.challenge(), sender, counter, {}};
  }
  Verdict check(const std::vector<std::byte>& data) {
    const auto read = RemoteCommand::decode(data);
    if (!read || !read->proof) return Verdict::wrong;
    return checker.check(*read->proof, read->proven).verdict;
  }
};

TEST_F(CommandProofTest, ACommandCountsOnceAndOnlyForTheChallengeOfNow) {
  auto made = proof(5);
  const auto data = command.encode(key(), made);
  EXPECT_EQ(check(data), Verdict::proven);
  EXPECT_EQ(check(data), Verdict::counterTooLow) << "recorded and sent again";
  made = proof(4);
  EXPECT_EQ(check(command.encode(key(), made)), Verdict::counterTooLow);
  made = proof(1, "office");
  EXPECT_EQ(check(command.encode(key(), made)), Verdict::proven) << "everybody counts alone";
  // From the last number nobody could count on: the one who takes it makes everybody begin anew.
  made = proof(std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(check(command.encode(key(), made)), Verdict::staleChallenge);
  made = proof(6);
  const auto recorded = command.encode(key(), made);
  checker.renew();
  EXPECT_EQ(check(recorded), Verdict::staleChallenge);
  made = proof(1);
  EXPECT_EQ(check(command.encode(key(), made)), Verdict::proven) << "a clock set back does no harm";
}

TEST_F(CommandProofTest, NoByteCanBeChanged) {
  auto made = proof(5);
  const auto data = command.encode(key(), made);
  const auto unchanged = RemoteCommand::decode(data);
  for (std::size_t at = 0; at < data.size(); ++at) {
    auto changed = data;
    changed[at] ^= std::byte{1};
    const auto read = RemoteCommand::decode(changed);
    // Another spelling of the same command, as by another version of the archive, is the same.
    if (!read || !read->proof || read->proven == unchanged->proven) continue;
    ASSERT_EQ(check(changed), Verdict::wrong) << at;
  }
  EXPECT_EQ(check(data), Verdict::proven);
}

TEST_F(CommandProofTest, OtherPasswordsAndOtherMachinesMakeOtherKeys) {
  for (const auto& [password, machine] :
       {std::pair("Geheim", "5eed0123beef"), std::pair("geheim", "5eed0123beee")}) {
    const auto other = ControlKey::of(password, machine);
    ASSERT_TRUE(other);
    auto made = proof(5);
    EXPECT_EQ(check(command.encode(*other, made)), Verdict::wrong);
  }
  EXPECT_FALSE(ControlKey::of("", "5eed0123beef"));
  auto known = proof(5);
  const auto again = ControlKey::of("geheim", "5eed0123beef");
  ASSERT_TRUE(again);
  EXPECT_EQ(check(command.encode(*again, known)), Verdict::proven);
}

TEST_F(CommandProofTest, MoreSendersThanAreKeptLetNoRecordedCommandIn) {
  auto made = proof(1, "first");
  const auto recorded = command.encode(key(), made);
  EXPECT_EQ(check(recorded), Verdict::proven);
  for (int i = 0; i < 3000; ++i) {
    made = proof(1, "sender " + std::to_string(i));
    check(command.encode(key(), made));
    ASSERT_NE(check(recorded), Verdict::proven) << i;
  }
}

TEST_F(CommandProofTest, ARepliesProofIsForThisCommandAlone) {
  auto made = proof(5);
  static_cast<void>(command.encode(key(), made));
  auto other = proof(6);
  static_cast<void>(command.encode(key(), other));
  const CommandReply reply{CommandReply::Word::counterTooLow, "", 41, {}};
  auto data = CommandReply::encode(reply, made, std::optional(key()));
  ASSERT_TRUE(CommandReply::decode(data, made, key()));
  EXPECT_EQ(CommandReply::decode(data, made, key())->counter, 41);
  EXPECT_FALSE(CommandReply::decode(data, other, key()));
  for (std::size_t at = 0; at < data.size(); ++at) {
    auto changed = data;
    changed[at] ^= std::byte{1};
    const auto read = CommandReply::decode(changed, made, key());
    if (read && read->word != CommandReply::Word::wrongPassword) {
      ASSERT_EQ(read->word, reply.word) << at;
      ASSERT_EQ(read->counter, 41) << at;
    }
  }
  EXPECT_FALSE(CommandReply::decode({}, made, key()));
}

struct PairingTest : testing::Test {
  using Role = Pairing::Role;
  Pairing anna{Role::asking, {"anna", "a11a", 501}};
  Pairing berta{Role::accepting, {"berta", "be27a", 502}};

  static std::vector<std::byte> heard(Pairing& side, const std::vector<std::byte>& message) {
    const auto answer = side.receive(message);
    EXPECT_TRUE(answer);
    return answer.valueOr({});
  }
};

TEST_F(PairingTest, BothShowTheSameDigitsAndKnowTheSameKeys) {
  heard(berta, heard(anna, heard(berta, anna.begin())));
  ASSERT_TRUE(anna.digits());
  EXPECT_EQ(anna.digits()->size(), 6U);
  EXPECT_EQ(anna.digits(), berta.digits());
  EXPECT_EQ(anna.other().sender(), "be27a/502");
  EXPECT_FALSE(anna.paired());
  const auto yes = anna.confirm();
  EXPECT_FALSE(anna.paired()) << "the other user has not said yes";
  EXPECT_FALSE(anna.receive(yes)) << "its own yes, mirrored";
  heard(berta, yes);
  EXPECT_FALSE(berta.paired());
  heard(anna, berta.confirm());
  ASSERT_TRUE(anna.paired());
  ASSERT_TRUE(berta.paired());

  const RemoteCommand command{RemoteCommand::Activate{0}};
  const ControlKey password = *ControlKey::from(std::vector<std::byte>(32));
  ProofChecker checker(password);
  checker.setPaired({{"a11a/501", berta.paired()->toBeControlled}});
  const auto verdict = [&](const ControlKey& key, const std::string& sender, std::int64_t counter) {
    CommandProof proof{checker.challenge(), sender, counter, {}};
    static_cast<void>(command.encode(key, proof));
    return checker.check(proof, command.encode()).verdict;
  };
  using Verdict = ProofChecker::Verdict;
  EXPECT_EQ(verdict(berta.paired()->toControl, "a11a/501", 1), Verdict::wrong)
      << "each direction has a key of its own";
  EXPECT_EQ(verdict(password, "a11a/501", 1000), Verdict::proven);
  EXPECT_EQ(verdict(anna.paired()->toControl, "a11a/501", 1), Verdict::proven)
      << "who knows the password has counted for the paired machine";
  EXPECT_EQ(verdict(anna.paired()->toControl, "0000/501", 1), Verdict::wrong)
      << "nobody speaks for another";
}

TEST_F(PairingTest, WhoStandsInBetweenIsSeenOrRefused) {
  Pairing toBerta(Role::asking, {"anna", "a11a", 501});
  Pairing toAnna(Role::accepting, {"berta", "be27a", 502});
  heard(toAnna, heard(anna, heard(toAnna, anna.begin())));
  heard(berta, heard(toBerta, heard(berta, toBerta.begin())));
  // One chance in a million that this test fails.
  EXPECT_NE(anna.digits(), berta.digits());

  Pairing careful(Role::accepting, {"berta", "be27a", 502});
  Pairing other(Role::asking, {"mallory", "bad", 1});
  const auto opening = heard(careful, anna.begin());
  EXPECT_FALSE(careful.receive(heard(other, opening))) << "not what it has committed itself to";
}

TEST_F(PairingTest, AMessageChangedInOneBitEndsItOrIsSeen) {
  const auto opening = heard(berta, anna.begin());
  for (std::size_t at = 0; at < opening.size(); ++at) {
    Pairing asking(Role::asking, {"anna", "a11a", 501});
    Pairing accepting(Role::accepting, {"berta", "be27a", 502});
    const auto first = heard(accepting, asking.begin());
    auto second = first;
    if (at >= second.size()) break;
    second[at] ^= std::byte{4};
    const auto answer = asking.receive(second);
    if (!answer) continue;
    heard(accepting, *answer);
    EXPECT_NE(asking.digits(), accepting.digits()) << at;
  }
  for (const std::size_t size : {0, 31, 33, 5000})
    EXPECT_FALSE(Pairing(Role::accepting, {"b", "b", 1}).receive(std::vector<std::byte>(size)));
}

TEST(PairedMachines, AreKeptRenamedAndForgotten) {
  SimulatedPlatform machine;
  ActionStore store(machine.clock, machine.machine, machine.systemLog);
  PairedMachines paired(store);
  const auto key = [](int fill) {
    return *ControlKey::from(std::vector<std::byte>(32, static_cast<std::byte>(fill)));
  };
  const auto names = [&] {
    std::string names;
    for (const PairedMachine& one : PairedMachines(store).all())
      names += one.machine.name + "=" + one.machine.sender() + " ";
    return names;
  };
  EXPECT_TRUE(paired.haveChanged());
  EXPECT_FALSE(paired.haveChanged());
  ASSERT_TRUE(paired.add({{"anna", "a11a", 501}, key(1), key(2)}));
  ASSERT_TRUE(paired.add({{"berta", "be27a", 501}, key(3), key(4)}));
  ASSERT_TRUE(paired.add({{"anna 2", "a11a", 501}, key(5), key(6)}));
  ASSERT_TRUE(paired.add({{"be27a/501", "a11a", 502}, key(7), key(8)}));
  EXPECT_TRUE(paired.haveChanged());
  EXPECT_EQ(names(), "berta=be27a/501 anna 2=a11a/501 be27a/501=a11a/502 ");
  EXPECT_EQ(paired.all()[1].toControl.bytes()[0], std::byte{5});
  EXPECT_EQ(paired.all()[1].toBeControlled.bytes()[0], std::byte{6});
  EXPECT_FALSE(paired.forget("a11a")) << "several";
  EXPECT_FALSE(paired.forget("nobody").valueOr(true));
  EXPECT_FALSE(paired.rename("berta", ""));
  EXPECT_TRUE(paired.rename("berta", "my\nberta").valueOr(false));
  EXPECT_TRUE(paired.forget("be27a/501").valueOr(false))
      << "the one that it is, not the one called so";
  EXPECT_EQ(names(), "anna 2=a11a/501 be27a/501=a11a/502 ");

  // What was damaged is left out, and what could be no sender.
  const std::string path = store.folder().pathOf(DataFolder::kPaired);
  const ZAN_Value good = store.files().readListFromFile(DataFolder::kPaired).at(0);
  ZAN_Value list = ZAN_Value::array({good});
  for (const auto& [field, value] : std::initializer_list<std::pair<const char*, ZAN_Value>>{
           {"Identifier", "a/b"},
           {"Identifier", ""},
           {"Identifier", std::string(300, 'a')},
           {"Name", ""},
           {"KeyToControl", ZAN_Value::data(std::vector<std::byte>(31))},
           {"KeyToBeControlled", ZAN_Value()}}) {
    ZAN_Value bad = good;
    bad.setValue(field, value);
    list.append(bad);
  }
  ASSERT_TRUE(store.files().writeListToPath(list, path));
  EXPECT_EQ(names(), "anna 2=a11a/501 ");
  struct stat status;
  ASSERT_TRUE(paired.rename("anna 2", "anna"));
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U) << "keys are nobody else's business";
}

}  // namespace
}  // namespace corvana
