#include <QCoreApplication>
#include <QDBusConnection>
#include <QTimer>

int main(int argc, char** argv) {
  QCoreApplication application(argc, argv);
  QDBusConnection::sessionBus().registerService("com.zan.corvana9.IdlePeer");
  QTimer timer;
  timer.start(250);
  return application.exec();
}
