#include "platform/simulated/SimulatedUserInterface.h"

#include <algorithm>

namespace corvana {

void SimulatedUserInterface::showWindow(Window window) {
  windows.insert(window);
  quiet.erase(window);
}

void SimulatedUserInterface::showWindowQuietly(Window window) {
  if (windows.insert(window).second) quiet.insert(window);
}

void SimulatedUserInterface::hideWindow(Window window) {
  windows.erase(window);
  quiet.erase(window);
}

void SimulatedUserInterface::openMessageWindow(const MessageWindow& shown) {
  message = shown;
  messages.push_back(shown);
}

void SimulatedUserInterface::openAnnounceWindow(const std::string& title) {
  announce = title;
  announces.push_back(title);
}

void SimulatedUserInterface::setAnnounceProgress(double value, const std::string& text) {
  announceProgress.emplace(value, text);
}

void SimulatedUserInterface::deliverNotification(const std::string& title, const std::string& text,
                                                 const std::string& button) {
  notifications.push_back({title, text, button});
}

void SimulatedUserInterface::setStatusIcon(StatusIcon icon, int context) {
  if (!statusIcon || statusIcon->first != icon) statusIcons.push_back(icon);
  statusIcon.emplace(icon, context);
  countDown.reset();
}

void SimulatedUserInterface::setStatusCountDown(int minutes, int context) {
  countDown.emplace(minutes, context);
  statusIcon.reset();
}

void SimulatedUserInterface::setStatusTitle(const std::string& text) {
  if (text == statusTitle) return;
  statusTitle = text;
  statusTitles.push_back(text);
}

void SimulatedUserInterface::setActionExecuted(std::int64_t size, int value, std::int64_t count) {
  sizeCopied = size;
  progress = value;
  errors = count;
}

void SimulatedUserInterface::ask(Window window, const std::string& title, const std::string& text,
                                 std::function<void(bool)> answer) {
  questions.push_back({window, title, text});
  const auto known = mAnswers.find(window);
  if (known == mAnswers.end()) {
    mWaiting.emplace_back(window, std::move(answer));
    return;
  }
  mRunLoop.performOnMain(
      [answer = std::move(answer), confirmed = known->second] { answer(confirmed); });
}

void SimulatedUserInterface::askWhich(const std::string& title, const std::string& text,
                                      const std::array<std::string, 2>& choices,
                                      std::function<void(std::optional<int>)> answer) {
  questions.push_back({Window::status, title, text + " " + choices[0] + " / " + choices[1]});
  mWhich = std::move(answer);
}

bool SimulatedUserInterface::answerWhich(std::optional<int> choice) {
  const auto answer = std::exchange(mWhich, {});
  if (answer) answer(choice);
  return static_cast<bool>(answer);
}

void SimulatedUserInterface::alert(const std::string& title, const std::string& text,
                                   const std::string& button) {
  alerts.push_back({title, text, button});
}

void SimulatedUserInterface::setAnswer(Window window, std::optional<bool> answer) {
  if (answer) {
    mAnswers[window] = *answer;
  } else {
    mAnswers.erase(window);
  }
}

bool SimulatedUserInterface::answer(Window window, bool confirmed) {
  const auto found = std::find_if(mWaiting.begin(), mWaiting.end(),
                                  [&](const auto& one) { return one.first == window; });
  if (found == mWaiting.end()) return false;
  const auto call = std::move(found->second);
  mWaiting.erase(found);
  call(confirmed);
  return true;
}

}  // namespace corvana
