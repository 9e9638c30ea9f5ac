#include "application/CommandChild.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <csignal>
#include <utility>

#include "ZANCocoaFramework/ZAN_Json.h"
#include "desktop/Texts.h"

namespace corvana {

namespace {

constexpr int kLevels = 5;
constexpr const char* kCommand = "corvana9";

}  // namespace

CommandChild::~CommandChild() { forget(); }

QString CommandChild::program() {
  // Beside the folder of the bundle, or in that of programs where an installation puts it.
  QDir folder(QCoreApplication::applicationDirPath());
  for (int level = 0; level < kLevels; ++level) {
    const QFileInfo found(folder.filePath(QStringLiteral("bin/") + QLatin1String(kCommand)));
    if (found.isExecutable() && found.isFile()) return found.absoluteFilePath();
    if (!folder.cdUp()) break;
  }
  return QStandardPaths::findExecutable(QLatin1String(kCommand));
}

void CommandChild::run(const QStringList& words, Ended ended, News news, const QByteArray& input) {
  forget();
  const QString path = program();
  if (path.isEmpty()) {
    ended({{}, "the command corvana9 is not installed beside this program"});
    return;
  }
  mErrors.clear();
  const bool goesOn = static_cast<bool>(news);
  mProcess = new QProcess(this);
  QObject::connect(mProcess, &QProcess::readyReadStandardError, this,
                   [this, news = std::move(news)] { takeNews(news); });
  QObject::connect(mProcess, &QProcess::errorOccurred, this,
                   [this, path, ended](QProcess::ProcessError error) {
                     if (error != QProcess::FailedToStart) return;
                     std::exchange(mProcess, nullptr)->deleteLater();
                     ended({{}, utf8(path) + ": it does not start"});
                   });
  QObject::connect(mProcess, &QProcess::finished, this,
                   [this, ended](int code, QProcess::ExitStatus status) {
                     finished(ended, status == QProcess::NormalExit ? code : -1);
                   });
  // This program holds signals back to hear of them in its loop; a child would never get them.
  mProcess->setChildProcessModifier([] {
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    ::signal(SIGINT, SIG_DFL);
  });
  // What follows "--" is no option.
  QStringList all = words;
  all.insert(1, QStringLiteral("--json"));
  mProcess->start(path, all);
  if (!input.isEmpty()) mProcess->write(input);
  if (!goesOn) mProcess->closeWriteChannel();
}

void CommandChild::say(const QByteArray& line) {
  if (mProcess != nullptr) mProcess->write(line + '\n');
}

void CommandChild::takeNews(const News& news) {
  mErrors += mProcess->readAllStandardError();
  for (qsizetype end = mErrors.indexOf('\n'); end >= 0 && mErrors.startsWith('{');
       end = mErrors.indexOf('\n')) {
    const auto line = ZAN_Json::valueWithJson(mErrors.left(end).toStdString());
    mErrors.remove(0, end + 1);
    if (line && news) news(*line);
    // It may have been forgotten in the answer to its news.
    if (mProcess == nullptr) return;
  }
}

void CommandChild::finished(const Ended& ended, int code) {
  takeNews({});
  Ending ending;
  if (const auto answer = ZAN_Json::valueWithJson(mProcess->readAllStandardOutput().toStdString()))
    ending.answer = *answer;
  std::exchange(mProcess, nullptr)->deleteLater();
  if (code != 0) {
    ending.reason = ending.answer.string("reason");
    if (ending.reason.empty()) ending.reason = mErrors.trimmed().toStdString();
    constexpr std::string_view kName = "corvana9: ";
    if (ending.reason.starts_with(kName)) ending.reason.erase(0, kName.size());
    if (ending.reason.empty()) ending.reason = "corvana9: it ended unexpectedly";
  }
  ended(ending);
}

void CommandChild::stop() {
  if (mProcess != nullptr && mProcess->processId() > 0)
    ::kill(static_cast<pid_t>(mProcess->processId()), SIGINT);
}

void CommandChild::forget() { leave(SIGTERM); }

void CommandChild::cancel() { leave(SIGINT); }

void CommandChild::leave(int signal) {
  if (mProcess == nullptr) return;
  QProcess* const process = std::exchange(mProcess, nullptr);
  process->disconnect(this);
  // What it was doing is no longer wanted; it ends by itself and nobody waits.
  process->setParent(nullptr);
  QObject::connect(process, &QProcess::finished, process, &QObject::deleteLater);
  if (process->state() == QProcess::NotRunning)
    process->deleteLater();
  else if (process->processId() > 0)
    ::kill(static_cast<pid_t>(process->processId()), signal);
}

}  // namespace corvana
