#include <QApplication>
#include <QLocale>
#include <clocale>
#include <cstdio>
#include <cstring>

#include "application/Household.h"
#include "application/Look.h"
#include "application/MainWindow.h"
#include "desktop/DesktopLanguage.h"
#include "desktop/Texts.h"
#include "platform/linux/TerminationSignals.h"

namespace corvana {
namespace {

constexpr const char* kHelp =
    "Usage: \"Corvana 9\"\n"
    "\n"
    "Opens the window in which backups are set up, looked after and restored. A second start "
    "brings\n"
    "the first one's window to the front. The scheduler is started with it and goes on without "
    "it.\n"
    "\n"
    "  --help      show this text\n"
    "  --version   show the version\n";

int run(int count, char** arguments) {
  TerminationSignals terminations(false);
  qputenv("QT_NO_GLIB", "1");
  const QApplication application(count, arguments);
  qunsetenv("QT_NO_GLIB");
  // It has taken over the user's decimal sign; numbers in files have a point.
  std::setlocale(LC_NUMERIC, "C");
  QGuiApplication::setApplicationDisplayName(QStringLiteral("Corvana 9"));
  QGuiApplication::setDesktopFileName(QStringLiteral("com.zan.corvana9"));
  StandardErrorLog log;
  Household household(log);
  if (!household.claim()) return 0;
  terminations.watch(household.loop(),
                     [&household](const TerminationSignal&) { household.loop().quit(0); });
  QLocale::setDefault(QLocale(qt(household.machine().regionName())));
  const DesktopLanguage language(household.texts().text("LanguageCode"));
  const std::string& resources =
      household.store().installPaths().installPathForCode(InstallPaths::schedulerResources);
  Look::setPictures(qt(resources));
  QGuiApplication::setWindowIcon(QIcon::fromTheme(
      QStringLiteral("com.zan.corvana9"), QIcon(qt(resources + "/logo_cva_dialogs@2x.png"))));
  household.begin();
  MainWindow window(household);
  window.bringToFront({});
  const int code = household.loop().run();
  window.hide();
  household.end();
  return code;
}

}  // namespace
}  // namespace corvana

int main(int count, char** arguments) {
  for (int i = 1; i < count; ++i) {
    if (std::strcmp(arguments[i], "--help") == 0) return std::fputs(corvana::kHelp, stdout) < 0;
    if (std::strcmp(arguments[i], "--version") == 0)
      return std::puts("Corvana 9 " CORVANA_VERSION) < 0;
  }
  return corvana::run(count, arguments);
}
