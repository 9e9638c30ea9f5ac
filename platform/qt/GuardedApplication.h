#pragma once

#include <QObject>
#include <exception>
#include <functional>

class QEvent;

namespace corvana {

/// One of Qt's application objects, out of whose events no exception gets: it would end the
/// program, and what Qt has not delivered yet would be lost. Thread: main.
template <class Application>
class GuardedApplication final : public Application {
 public:
  using Application::Application;

  /// Without it an exception ends the program.
  std::function<void(const std::exception&)> onException;

  bool notify(QObject* receiver, QEvent* event) override {
    try {
      return Application::notify(receiver, event);
    } catch (const std::exception& exception) {
      if (!onException) throw;
      onException(exception);
      return true;
    }
  }
};

}  // namespace corvana
