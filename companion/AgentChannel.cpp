#include "companion/AgentChannel.h"

#include <QCoreApplication>
#include <array>
#include <clocale>
#include <optional>
#include <string>

#include "platform/Machine.h"
#include "platform/qt/BusNotifications.h"
#include "platform/qt/QtRunLoop.h"

namespace corvana {

namespace {

constexpr const char* kAgent = "CVA9_SchedulerNotification";
constexpr double kLongestWait = 1;

/// A command has nothing to say about the bus.
class NoLog final : public SystemLog {
 public:
  void write(const std::string&) override {}
};

}  // namespace

bool postOnBus(const DistributedNotification& notification) {
  if (BusConnection::sessionBusAddress().empty()) return false;
  std::string name = "corvana9";
  std::array<char*, 2> words{name.data(), nullptr};
  int count = 1;
  std::optional<QCoreApplication> application;
  if (QCoreApplication::instance() == nullptr) {
    application.emplace(count, words.data());
    // It has taken over the user's decimal sign; numbers in JSON have a point.
    std::setlocale(LC_NUMERIC, "C");
  }
  NoLog log;
  QtRunLoop loop;
  BusNotifications notifications(loop, log);
  if (!notifications.isConnected()) return false;
  // What comes back from the bus has reached everybody.
  notifications.observe(notification.name, [&](const DistributedNotification& heard) {
    if (heard.object == notification.object) loop.quit(0);
  });
  notifications.post(notification);
  loop.performAfter(kLongestWait, [&] { loop.quit(0); });
  loop.run();
  return true;
}

void tellAgentThatActionListChanged() { postOnBus({kAgent, "ActionListChanged", {}}); }

}  // namespace corvana
