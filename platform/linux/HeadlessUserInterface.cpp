#include "platform/linux/HeadlessUserInterface.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace corvana {

HeadlessUserInterface::HeadlessUserInterface(RunLoop& runLoop,
                                             std::function<void(const std::string&)> log,
                                             bool wantsWindows)
    : mRunLoop(runLoop), mLog(std::move(log)), mWantsWindows(wantsWindows) {}

bool HeadlessUserInterface::moveTo(const std::map<std::string, std::string>& desktop) {
  if (!mWantsWindows || desktop.empty()) return false;
  for (const char* name : kDesktopVariables) {
    const auto value = desktop.find(name);
    if (value == desktop.end()) {
      unsetenv(name);
    } else {
      setenv(name, value->second.c_str(), 1);
    }
  }
  return true;
}

void HeadlessUserInterface::tell(const std::string& what, const std::string& title,
                                 const std::string& text) {
  std::string line = what + ": " + title;
  if (!text.empty() && !title.empty()) line += " - ";
  line += text;
  std::replace(line.begin(), line.end(), '\n', ' ');
  mLog(line);
}

void HeadlessUserInterface::openMessageWindow(const MessageWindow& message) {
  tell("Message", message.title, message.text);
}

void HeadlessUserInterface::openAnnounceWindow(const std::string& title) {
  tell("Announced", title, {});
}

void HeadlessUserInterface::deliverNotification(const std::string& title, const std::string& text,
                                                const std::string& /*button*/) {
  tell("Notification", title, text);
}

void HeadlessUserInterface::setStatusTitle(const std::string& text) {
  if (text == mStatusTitle) return;
  mStatusTitle = text;
  if (!text.empty()) tell("Status", text, {});
}

void HeadlessUserInterface::ask(Window /*window*/, const std::string& title,
                                const std::string& text, std::function<void(bool)> answer) {
  tell("Question, answered with no", title, text);
  mRunLoop.performOnMain([answer = std::move(answer)] { answer(false); });
}

void HeadlessUserInterface::askWhich(const std::string& title, const std::string& text,
                                     const std::array<std::string, 2>& /*choices*/,
                                     std::function<void(std::optional<int>)> answer) {
  tell("Question, not answered", title, text);
  mRunLoop.performOnMain([answer = std::move(answer)] { answer(std::nullopt); });
}

void HeadlessUserInterface::alert(const std::string& title, const std::string& text,
                                  const std::string& /*button*/) {
  tell("Alert", title, text);
}

}  // namespace corvana
