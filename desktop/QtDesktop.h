#pragma once

#include <QApplication>

#include "desktop/DesktopLanguage.h"
#include "desktop/QtUserInterface.h"
#include "platform/Input.h"
#include "platform/qt/QtRunLoop.h"
#include "ui/Desktop.h"

namespace corvana {

/// The desktop in Qt widgets: X11, or whatever platform of Qt the environment asks for. Thread:
/// main.
class QtDesktop final : public Desktop {
 public:
  /// Null without a display that answers, and then why in `reason`.
  static std::unique_ptr<QtDesktop> open(int& count, char** arguments, std::string& reason);

  QtDesktop(int& count, char** arguments);
  ~QtDesktop() override;

  void begin(const Services& services) override;
  UserInterface& userInterface() override { return *mUserInterface; }
  Input& input() override { return *mInput; }
  void attach(const UserInterfaceSources& sources) override;
  void whenLost(std::function<void()> lost) override;
  void end() override;

 private:
  class Loss;

  std::shared_ptr<Loss> mLoss;
  GuardedApplication<QApplication> mApplication;
  std::unique_ptr<Input> mInput;
  std::unique_ptr<DesktopLanguage> mLanguage;
  std::unique_ptr<QtUserInterface> mUserInterface;
};

}  // namespace corvana
