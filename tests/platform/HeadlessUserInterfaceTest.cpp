#include "platform/linux/HeadlessUserInterface.h"

#include <gmock/gmock.h>

#include <optional>
#include <vector>

#include "platform/simulated/SimulatedPlatform.h"

namespace corvana {
namespace {

using testing::ElementsAre;

TEST(HeadlessUserInterfaceTest, TellsInLinesWhatIsNewAndConfirmsNothing) {
  SimulatedPlatform machine;
  std::vector<std::string> lines;
  HeadlessUserInterface shown(machine.runLoop,
                              [&](const std::string& line) { lines.push_back(line); });
  std::optional<bool> answered;
  shown.setStatusTitle("Next at 8:00");
  shown.setStatusTitle("Next at 8:00");
  shown.setStatusTitle("");
  shown.openMessageWindow({"Title", "two\nlines", 10, true});
  shown.deliverNotification("Copied", "", "Show");
  shown.ask(Window::queue, "Quit?", "Really", [&](bool confirmed) { answered = confirmed; });
  EXPECT_FALSE(answered.has_value());
  machine.runLoop.runFor(0);
  EXPECT_EQ(answered, false);
  EXPECT_THAT(lines,
              ElementsAre("Status: Next at 8:00", "Message: Title - two lines",
                          "Notification: Copied", "Question, answered with no: Quit? - Really"));
}

}  // namespace
}  // namespace corvana
