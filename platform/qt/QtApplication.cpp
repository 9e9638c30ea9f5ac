#include "platform/qt/QtApplication.h"

#include <QCoreApplication>
#include <array>
#include <clocale>
#include <string>

namespace corvana {

struct QtApplication::Own {
  std::string name = "corvana9";
  std::array<char*, 2> words{name.data(), nullptr};
  int count = 1;
  QCoreApplication application{count, words.data()};
};

QtApplication::QtApplication() {
  if (QCoreApplication::instance() != nullptr) return;
  // It complains aloud where the locale is the plain one, and goes on.
  const QtMessageHandler handler =
      qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
  mOwn = std::make_unique<Own>();
  qInstallMessageHandler(handler);
  // It has taken over the user's decimal sign; numbers in JSON have a point.
  std::setlocale(LC_NUMERIC, "C");
}

QtApplication::~QtApplication() = default;

}  // namespace corvana
