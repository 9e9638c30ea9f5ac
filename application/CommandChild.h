#pragma once

#include <QObject>
#include <QProcess>
#include <QStringList>
#include <functional>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// A subcommand of corvana9 in a process of its own, so that nothing here waits for a disk, a list
/// of a hundred thousand names or another program, and whatever breaks there breaks nothing here.
/// One at a time; it ends with this object. Thread: main.
class CommandChild final : public QObject {
 public:
  /// What it answers with --json; an error when it could not, with its reason. What it found out
  /// all the same is with `answer`.
  struct Ending {
    ZAN_Value answer;
    std::string reason;  ///< empty: it did what it was asked for
    bool isDone() const { return reason.empty(); }
  };
  using Ended = std::function<void(const Ending& ending)>;
  using News = std::function<void(const ZAN_Value& news)>;

  CommandChild() = default;
  ~CommandChild() override;

  /// Runs `words`, the first of which is the subcommand, with "--json"; one that goes on is
  /// forgotten first. `input` is its standard input, `news` gets what it tells as it goes on, a
  /// dictionary each; to one that tells news more can be said as well.
  void run(const QStringList& words, Ended ended, News news = {}, const QByteArray& input = {});
  /// One more line of its standard input.
  void say(const QByteArray& line);
  bool runs() const { return mProcess != nullptr; }
  /// Asks it to end, as an interrupt at a terminal does; `Ended` hears of it.
  void stop();
  /// Ends it, and nobody hears of it; what it had others do goes on.
  void forget();
  /// The same, and that stops, too.
  void cancel();

  /// Where the command lies that belongs to this program; empty: it is not installed.
  static QString program();

 private:
  void takeNews(const News& news);
  void finished(const Ended& ended, int code);
  void leave(int signal);

  QProcess* mProcess = nullptr;
  QByteArray mErrors;
};

}  // namespace corvana
