#include "desktop/QtUserInterface.h"

#include <QCoreApplication>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "desktop/Questions.h"
#include "desktop/WindowRegistry.h"
#include "platform/RunLoop.h"
#include "ui/UserInterfaceSources.h"

namespace corvana {

class QtUserInterface::Private {
 public:
  explicit Private(const Desktop::Services& given) : services(given), windows(given.runLoop) {}

  std::string text(std::string_view key) const {
    return sources == nullptr ? std::string(key) : sources->texts.text(key);
  }

  Desktop::Services services;
  std::unique_ptr<const UserInterfaceSources> sources;
  WindowRegistry windows;
  std::unique_ptr<Questions> questions = std::make_unique<Questions>();
  bool hasStatusItem = false;
};

QtUserInterface::QtUserInterface(const Desktop::Services& services)
    : mPrivate(std::make_unique<Private>(services)) {}

QtUserInterface::~QtUserInterface() = default;

void QtUserInterface::attach(const UserInterfaceSources& sources) {
  mPrivate->sources = std::make_unique<const UserInterfaceSources>(sources);
  mPrivate->windows.setSources(mPrivate->sources.get());
}

void QtUserInterface::end() {
  mPrivate->questions.reset();
  mPrivate->windows.setSources(nullptr);
  mPrivate->sources.reset();
}

void QtUserInterface::openMessageWindow(const MessageWindow& /*message*/) {}
void QtUserInterface::closeMessageWindow() {}
void QtUserInterface::paintNow() { QCoreApplication::processEvents(); }
void QtUserInterface::openAnnounceWindow(const std::string& /*title*/) {}
void QtUserInterface::closeAnnounceWindow() {}
void QtUserInterface::setAnnounceProgress(double /*value*/, const std::string& /*text*/) {}
void QtUserInterface::deliverNotification(const std::string& /*title*/, const std::string& /*text*/,
                                          const std::string& /*button*/) {}

void QtUserInterface::createStatusItem() { mPrivate->hasStatusItem = true; }
void QtUserInterface::removeStatusItem() { mPrivate->hasStatusItem = false; }
bool QtUserInterface::hasStatusItem() const { return mPrivate->hasStatusItem; }
void QtUserInterface::setStatusIcon(StatusIcon /*icon*/, int /*context*/) {}
void QtUserInterface::setStatusCountDown(int /*minutes*/, int /*context*/) {}
void QtUserInterface::setStatusTitle(const std::string& /*text*/) { mPrivate->windows.refresh(); }
void QtUserInterface::setStatusInformation(const std::string& /*text*/) {}
void QtUserInterface::setToolTip(const std::string& /*text*/) {}
void QtUserInterface::menusChanged() { mPrivate->windows.refresh(); }
void QtUserInterface::setExecutionControlsEnabled(bool /*enabled*/) {}
void QtUserInterface::rearrangeMessageWindows() {}
void QtUserInterface::popUpFloatingMenu() {}

void QtUserInterface::showWindow(Window window) { mPrivate->windows.show(window); }
void QtUserInterface::hideWindow(Window window) { mPrivate->windows.hide(window); }
bool QtUserInterface::isWindowVisible(Window window) const {
  return mPrivate->windows.isVisible(window);
}

void QtUserInterface::setWindowText(Window window, const std::string& text) {
  mPrivate->windows.setText(window, text);
}

void QtUserInterface::bringWindowsToFront() {
  // Whoever starts the agent again wants to see it.
  if (mPrivate->windows.anyVisible()) {
    mPrivate->windows.bringToFront();
  } else {
    mPrivate->windows.show(Window::status);
  }
}

void QtUserInterface::listsChanged() { mPrivate->windows.refresh(); }
void QtUserInterface::windowChanged(Window window) {
  if (isWindowVisible(window)) mPrivate->windows.refresh();
}
void QtUserInterface::setFloatingIconOpacity(double /*percent*/) {}
void QtUserInterface::setActionExecuted(std::int64_t /*sizeCopied*/, int /*progress*/,
                                        std::int64_t /*errors*/) {}

void QtUserInterface::ask(Window window, const std::string& title, const std::string& text,
                          std::function<void(bool)> answer) {
  if (mPrivate->questions == nullptr) return;
  const bool quits = window == Window::status;
  mPrivate->questions->ask(title, text,
                           {mPrivate->text(quits ? "QuitButton" : "YesButton"),
                            mPrivate->text(quits ? "CancelButton" : "NoButton")},
                           std::move(answer));
}

void QtUserInterface::alert(const std::string& title, const std::string& text,
                            const std::string& button) {
  if (mPrivate->questions != nullptr) mPrivate->questions->ask(title, text, {button, {}}, {});
}

}  // namespace corvana
