#include "command/Commands.h"

#include <gmock/gmock.h>

namespace corvana {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST(Arguments, TakesFlagsAndOptionsWhereverTheyStand) {
  Arguments arguments(
      {"--at", "18:30", "A", "--on=/x", "--json", "--on", "/y", "-5", "--", "--at"});
  EXPECT_TRUE(arguments.json());
  EXPECT_FALSE(arguments.json());
  EXPECT_EQ(arguments.option("--at"), "18:30");
  EXPECT_THAT(arguments.options("--on"), ElementsAre("/x", "/y"));
  EXPECT_EQ(arguments.option("--from"), std::nullopt);
  EXPECT_THAT(arguments.words(0, 3).value(), ElementsAre("A", "-5", "--at"));
}

TEST(Arguments, WrongWordsSayWhatIsWrong) {
  const auto reason = [](std::vector<std::string> words) {
    Arguments arguments(std::move(words));
    arguments.number("--count", 1, 100);
    const auto rest = arguments.words(1, 1);
    return rest ? std::string() : rest.error().text;
  };
  EXPECT_EQ(reason({"FILE", "--count", "100"}), "");
  EXPECT_THAT(reason({"FILE", "--count"}), HasSubstr("needs a value"));
  EXPECT_THAT(reason({"FILE", "--count", "101"}), HasSubstr("\"101\""));
  EXPECT_THAT(reason({"FILE", "--count", "5x"}), HasSubstr("\"5x\""));
  EXPECT_THAT(reason({"FILE", "--cuont", "5"}), HasSubstr("--cuont"));
  EXPECT_THAT(reason({"FILE", "OTHER"}), HasSubstr("OTHER"));
  EXPECT_THAT(reason({}), HasSubstr("missing"));
}

}  // namespace
}  // namespace corvana
