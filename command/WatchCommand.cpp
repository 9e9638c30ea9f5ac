
#include "command/CommandHome.h"
#include "command/RunningAgent.h"
#include "platform/linux/TerminationSignals.h"
#include "platform/qt/BusAgentClient.h"
#include "platform/qt/QtRunLoop.h"

namespace corvana {

namespace {

std::string stateInWords(const ZAN_Value& status) {
  std::string text = status["enabled"].boolValue() ? "on" : "off";
  if (status["disabledWhenDone"].boolValue()) text += ", off when all is done";
  if (status["paused"].boolValue()) text += ", paused";
  const std::int64_t count = status.integer("queueCount");
  if (const ZAN_Value& current = status["current"]; !current.isNull()) {
    text += ", executing " + namedAction(current.string("title"), current.integer("ref"));
    if (const std::string how = current.string("progressText"); !how.empty()) text += ", " + how;
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
  Printer(CommandHome& home, RunningAgent& agent, const Writer& writer)
      : mHome(home), mAgent(agent), mWriter(writer) {}

  void notified(const DistributedNotification& notification) {
    std::string line = notification.name + " " + notification.object;
    if (!notification.userInfo.isNull()) {
      line += " " + jsonText(notification.userInfo, true);
      line.pop_back();
    }
    tell("message", line,
         {{"name", notification.name},
          {"object", notification.object},
          {"details", notification.userInfo}});
  }

  /// `again`: also when it is what was printed last.
  void state(bool again) {
    mAgent.refresh();
    const std::string words =
        mAgent.answers() ? "agent: " + stateInWords(mAgent.status()) : mAgent.absence();
    if (!again && words == mLastWords && !mWriter.isJson()) return;
    mLastWords = words;
    tell("state", words,
         {{"agent", mAgent.answers()}, {"reason", mAgent.absence()}, {"status", mAgent.status()}});
  }

  void agentIsOn(bool on) {
    tell(on ? "agent came" : "agent left", on ? "the agent has come" : "the agent has left", {});
    if (on) state(true);
  }

 private:
  void tell(const char* name, const std::string& line,
            std::initializer_list<std::pair<std::string_view, ZAN_Value>> details) {
    const ReferenceTime now = mClock.now();
    ZAN_Value event = ZAN_Value::dictionary({{"event", name}});
    for (const auto& [key, value] : details) event.setValue(key, value);
    event.setValue("date", now);
    mWriter.tell(event, mHome.calendar().format(now, "%H:%M:%S") + "  " + line);
  }

  CommandHome& mHome;
  RunningAgent& mAgent;
  const Writer& mWriter;
  SystemClock mClock;
  std::string mLastWords;
};

}  // namespace

Answer watchCommand(Arguments& arguments, const Console& console) {
  const Writer writer(console, arguments.json());
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(words.error());
  TerminationSignals terminations(true);
  const QtApplication application;
  CommandHome home(console);
  RunningAgent agent(home);
  if (!agent.client().hasBus())
    return Error{ErrorKind::unavailable, "there is no session bus to listen to"};

  QtRunLoop loop;
  ConsoleLog log(console);
  Printer printer(home, agent, writer);
  const auto leaveIfUnheard = [&] {
    if (!console.out.good()) loop.quit(kCouldNot);
  };
  BusConnection connection(loop, log);
  const BusWatch watch(connection, {[&](const DistributedNotification& notification) {
                                      printer.notified(notification);
                                      leaveIfUnheard();
                                    },
                                    [&] {
                                      printer.state(false);
                                      leaveIfUnheard();
                                    },
                                    [&](bool on) {
                                      printer.agentIsOn(on);
                                      leaveIfUnheard();
                                    }});
  printer.state(true);
  terminations.watch(loop, [&loop](const auto&) { loop.quit(kDone); });
  Answer ended;
  ended.code = loop.run();
  return ended;
}

}  // namespace corvana
