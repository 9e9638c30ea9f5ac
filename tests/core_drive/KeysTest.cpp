#include <gtest/gtest.h>

#include "tests/core_drive/Drive.h"

namespace corvana {
namespace {

constexpr int kKey = 30;

/// Shortcut: that key; `operation` as in the preferences.
std::function<void(Drive&)> shortcut(int operation) {
  return [operation](Drive& day) {
    std::vector<std::byte> keys(16);
    keys[kKey / 8] = std::byte{1 << (kKey % 8)};
    day.prefer("SchedulerPrefKeysForShortcut", ZAN_Value::data(keys));
    day.prefer("SchedulerPrefShortcutOperation", operation);
  };
}

TEST(Keys, TheShortcutFiresOncePerPress) {
  const auto press = [](Drive& day) { day.machine.input.press(kKey); };
  expectEffects({
      {"next actions", press, "windows:  nextActions floatingIcon", shortcut(0)},
      {"all windows", press, "fronts: 1; opens ~/Applications/Corvana 9.app", shortcut(1)},
      {"both", press,
       "fronts: 1; windows:  nextActions floatingIcon; opens ~/Applications/Corvana 9.app",
       shortcut(2)},
      {"caps lock beside it",
       [&](Drive& day) {
         day.machine.input.press(SimulatedInput::kCapsLock);
         press(day);
       },
       "fronts: 1; opens ~/Applications/Corvana 9.app", shortcut(1)},
      {"another key beside it",
       [&](Drive& day) {
         day.machine.input.press(kKey + 1);
         press(day);
       },
       "", shortcut(1)},
      {"twice",
       [&](Drive& day) {
         press(day);
         day.runFor(5);
         day.machine.input.release(kKey);
         day.runFor(1);
         press(day);
       },
       "fronts: 2; opens ~/Applications/Corvana 9.app; opens ~/Applications/Corvana 9.app",
       shortcut(1)},
      {"a short press while nothing else is watched",
       [&](Drive& day) {
         press(day);
         day.runFor(0.5);
         day.machine.input.release(kKey);
       },
       "fronts: 1; opens ~/Applications/Corvana 9.app",
       [](Drive& day) {
         shortcut(1)(day);
         day.machine.input.position.reset();
       }},
      {"none is set", [](Drive& day) { day.machine.input.release(kKey); }, ""},
      {"set meanwhile",
       [&](Drive& day) {
         shortcut(1)(day);
         day.tell("PreferencesDidChange");
         press(day);
       },
       "fronts: 1; stored SchedulerPrefKeysForShortcut: (16 bytes); stored "
       "SchedulerPrefShortcutOperation: 1; opens ~/Applications/Corvana 9.app"},
  });
}

TEST(Keys, OptionAndAClickInTheMiddleOfTheMenuBarOpenTheMenu) {
  // A screen of 1440 with a panel of 24 at its top; the loop looks four times a second.
  const auto opens = [](double x, double y, bool option, bool button) {
    Drive day;
    day.begin();
    day.machine.input.position = Point{x, y};
    day.machine.input.optionKey = option;
    day.machine.input.mouseButton = button;
    day.machine.input.use();
    day.runFor(0.25);
    return day.ui.floatingMenus;
  };
  EXPECT_EQ(opens(700, 890, true, true), 1);
  EXPECT_EQ(opens(433, 877, true, true), 1);
  EXPECT_EQ(opens(950, 899, true, true), 1);
  EXPECT_EQ(opens(431, 890, true, true), 0) << "too far to the left";
  EXPECT_EQ(opens(951, 890, true, true), 0) << "too far to the right";
  EXPECT_EQ(opens(700, 876, true, true), 0) << "below the panel";
  EXPECT_EQ(opens(700, 890, false, true), 0);
  EXPECT_EQ(opens(700, 890, true, false), 0);
}

TEST(Keys, KeysAndThePointerMakeTheUserActive) {
  const auto idleSince = [](const std::function<void(Drive&)>& does) {
    Drive day;
    day.begin();
    day.runFor(60);
    does(day);
    day.runFor(1);
    return day.machine.clock.now() - day.agent->state().mStartOfIdleTime.at() < 2;
  };
  EXPECT_FALSE(idleSince([](Drive&) {}));
  EXPECT_TRUE(idleSince([](Drive& day) { day.machine.input.press(kKey); }));
  EXPECT_TRUE(idleSince([](Drive& day) {
    day.machine.input.position = Point{1, 1};
    day.machine.input.use();
  }));
  EXPECT_TRUE(idleSince([](Drive& day) {
    day.machine.input.idle = 0;
    day.machine.input.use();
  }));
  EXPECT_FALSE(idleSince([](Drive& day) { day.machine.input.idle = 50; }));
  EXPECT_FALSE(idleSince([](Drive& day) { day.machine.input.press(SimulatedInput::kCapsLock); }));
  EXPECT_TRUE(idleSince([](Drive& day) { day.machine.power.didWake(); }));
}

TEST(Keys, AScreenOfAnotherSizeMovesWhatFloats) {
  Drive day;
  day.begin();
  day.runFor(1);
  const int before = day.ui.rearrangements;
  day.machine.input.screen = {0, 0, 800, 600};
  day.machine.input.use();
  day.runFor(10);
  EXPECT_GT(day.ui.rearrangements, before);
}

}  // namespace
}  // namespace corvana
