#include <signal.h>
#include <sys/signalfd.h>

#include <ostream>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "command/CommandHome.h"
#include "command/Commands.h"
#include "command/RunningAgent.h"
#include "platform/qt/BusWatch.h"
#include "platform/qt/QtApplication.h"
#include "platform/qt/QtRunLoop.h"

namespace corvana {

namespace {

/// The signals that end the watching, as something readable. To be made before the first thread,
/// which inherits that they are blocked.
ZAN_Descriptor endingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, number);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return ZAN_Descriptor(signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC));
}

std::string stateInWords(const ZAN_Value& status) {
  std::string text = status["enabled"].boolValue() ? "on" : "off";
  if (status["disabledWhenDone"].boolValue()) text += ", off when all is done";
  if (status["paused"].boolValue()) text += ", paused";
  const std::int64_t count = status.integer("queueCount");
  if (const ZAN_Value current = status["current"]; !current.isNull()) {
    text += ", executing " + namedAction(current.string("title"), current.integer("ref"));
    if (count > 1) text += ", " + std::to_string(count - 1) + " waiting";
  } else if (count > 0) {
    text += ", " + std::to_string(count) + " in the queue";
  } else {
    text += ", nothing to do";
  }
  if (status.integer("errorCode") != 0) text += ", there were failures";
  return text;
}

/// Prints one line for each thing that happens.
class Printer {
 public:
  Printer(CommandHome& home, RunningAgent& agent, bool json, const Console& console)
      : mHome(home), mAgent(agent), mJson(json), mConsole(console) {}

  void notified(const DistributedNotification& notification) {
    if (mJson) {
      printEvent(ZAN_Value::dictionary({{"event", "message"},
                                        {"name", notification.name},
                                        {"object", notification.object},
                                        {"details", notification.userInfo}}));
      return;
    }
    std::string line = notification.name + " " + notification.object;
    if (!notification.userInfo.isNull()) {
      std::string details = jsonText(notification.userInfo, true);
      details.pop_back();
      line += " " + details;
    }
    printLine(line);
  }

  /// `again`: also when it is what was printed last.
  void state(bool again) {
    mAgent.refresh();
    const std::string words = mAgent.answers() ? stateInWords(mAgent.status()) : mAgent.absence();
    if (!again && words == mLastWords && !mJson) return;
    mLastWords = words;
    if (mJson) {
      printEvent(ZAN_Value::dictionary({{"event", "state"},
                                        {"agent", mAgent.answers()},
                                        {"reason", mAgent.absence()},
                                        {"status", mAgent.status()}}));
    } else {
      printLine(mAgent.answers() ? "agent: " + words : words);
    }
  }

  void agentIsOn(bool on) {
    if (mJson) {
      printEvent(ZAN_Value::dictionary({{"event", on ? "agent came" : "agent left"}}));
    } else {
      printLine(on ? "the agent has come" : "the agent has left");
    }
    if (on) state(true);
  }

  bool canPrint() const { return mConsole.out.good(); }

 private:
  void printEvent(ZAN_Value event) {
    event.setValue("date", mClock.now());
    mConsole.out << jsonText(event, true) << std::flush;
  }
  void printLine(const std::string& line) {
    mConsole.out << mHome.calendar().format(mClock.now(), "%H:%M:%S") << "  " << printable(line)
                 << '\n'
                 << std::flush;
  }

  CommandHome& mHome;
  RunningAgent& mAgent;
  bool mJson;
  const Console& mConsole;
  SystemClock mClock;
  std::string mLastWords;
};

class ErrorLog final : public SystemLog {
 public:
  explicit ErrorLog(std::ostream& out) : mOut(out) {}
  void write(const std::string& line) override { mOut << "corvana9: " << line << '\n'; }

 private:
  std::ostream& mOut;
};

}  // namespace

int watchCommand(Arguments& arguments, const Console& console) {
  const bool json = arguments.json();
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(console, words.error());
  const ZAN_Descriptor signals = endingSignals();
  const QtApplication application;
  CommandHome home(console);
  RunningAgent agent(home);
  if (!agent.client().hasBus())
    return failed(console, {ErrorKind::unavailable, "there is no session bus to listen to"});

  QtRunLoop loop;
  ErrorLog log(console.err);
  Printer printer(home, agent, json, console);
  const auto ended = [&] {
    if (!printer.canPrint()) loop.quit(kCouldNot);
  };
  BusConnection connection(loop, log);
  const BusWatch watch(connection, {[&](const DistributedNotification& notification) {
                                      printer.notified(notification);
                                      ended();
                                    },
                                    [&] {
                                      printer.state(false);
                                      ended();
                                    },
                                    [&](bool on) {
                                      printer.agentIsOn(on);
                                      ended();
                                    }});
  printer.state(true);
  loop.watch(signals.get(), DescriptorWatch::Event::readable, [&] { loop.quit(kDone); });
  return loop.run();
}

}  // namespace corvana
