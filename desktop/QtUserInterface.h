#pragma once

#include <memory>

#include "platform/UserInterface.h"
#include "ui/Desktop.h"

namespace corvana {

/// The user interface of the desktop, in Qt widgets: hands each wish to the part that draws it.
/// Before sources are attached menus are empty and windows stay away. Thread: main.
class QtUserInterface final : public UserInterface {
 public:
  explicit QtUserInterface(const Desktop::Services& services);
  ~QtUserInterface() override;

  void attach(const UserInterfaceSources& sources);
  /// Takes everything from the screen; what is asked for later is not shown.
  void end();

  bool showsMessages() const override { return true; }
  void openMessageWindow(const MessageWindow& message) override;
  void closeMessageWindow() override;
  void paintNow() override;
  void openAnnounceWindow(const std::string& title) override;
  void closeAnnounceWindow() override;
  void setAnnounceProgress(double value, const std::string& text) override;
  void deliverNotification(const std::string& title, const std::string& text,
                           const std::string& button) override;

  void createStatusItem() override;
  void removeStatusItem() override;
  bool hasStatusItem() const override;
  void setStatusIcon(StatusIcon icon, int context) override;
  void setStatusCountDown(int minutes, int context) override;
  void setStatusTitle(const std::string& text) override;
  void setToolTip(const std::string& text) override;
  void changed(ChangeSet what) override;
  void rearrangeMessageWindows() override;
  void popUpFloatingMenu() override;

  void showWindow(Window window) override;
  void showWindowQuietly(Window window) override;
  void hideWindow(Window window) override;
  bool isWindowVisible(Window window) const override;
  void setWindowText(Window window, const std::string& text) override;
  void bringWindowsToFront() override;
  void setFloatingIconOpacity(double percent) override;
  void setActionExecuted(std::int64_t sizeCopied, int progress, std::int64_t errors) override;

  std::map<std::string, std::string> desktop() const override;

  void ask(Window window, const std::string& title, const std::string& text,
           std::function<void(bool)> answer) override;
  void askWhich(const std::string& title, const std::string& text,
                const std::array<std::string, 2>& choices,
                std::function<void(std::optional<int>)> answer) override;
  void alert(const std::string& title, const std::string& text, const std::string& button) override;

 private:
  class Private;
  std::unique_ptr<Private> mPrivate;
};

}  // namespace corvana
