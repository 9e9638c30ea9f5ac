#include <gtest/gtest.h>
#include <sys/wait.h>

#include <QApplication>
#include <QElapsedTimer>
#include <cerrno>
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
  void TearDown() override {
    // A child that nobody wants any more ends by itself, and what held it goes then.
    QElapsedTimer time;
    siginfo_t child;
    for (time.start(); !time.hasExpired(10'000);) {
      if (::waitid(P_ALL, 0, &child, WEXITED | WNOHANG | WNOWAIT) != 0 && errno == ECHILD) break;
      QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 10);
    }
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    mApplication.reset();
  }

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
