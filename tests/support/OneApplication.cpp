#include <gtest/gtest.h>

#include <QApplication>
#include <clocale>
#include <memory>

namespace corvana {
namespace {

/// The application of all tests of a program, on a screen that nobody sees. A second one in the
/// same process would leave things of the first behind.
class OneApplication final : public testing::Environment {
 public:
  void SetUp() override {
    qputenv("QT_QPA_PLATFORM", "offscreen");
#ifdef CORVANA_WITHOUT_BUS
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
#endif
    mApplication = std::make_unique<QApplication>(mCount, mArguments);
    std::setlocale(LC_NUMERIC, "C");
  }
  void TearDown() override { mApplication.reset(); }

 private:
  int mCount = 1;
  char mName[5] = "test";
  char* mArguments[2] = {mName, nullptr};
  std::unique_ptr<QApplication> mApplication;
};

testing::Environment* const sOneApplication =
    testing::AddGlobalTestEnvironment(new OneApplication);  // gtest deletes it

}  // namespace
}  // namespace corvana
