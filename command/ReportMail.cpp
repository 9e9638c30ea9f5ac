#include "command/ReportMail.h"

#include <ostream>

#include "actions/History.h"
#include "command/CommandTexts.h"
#include "command/MailDialogue.h"
#include "command/RunningAgent.h"
#include "mail/report/ReportComposer.h"
#include "platform/linux/LinuxProcesses.h"
#include "platform/qt/QtApplication.h"
#include "platform/qt/QtNetwork.h"
#include "platform/qt/QtRunLoop.h"

namespace corvana {
namespace {

/// The report with all that makes one.
class Maker {
 public:
  explicit Maker(CommandHome& home)
      : mHome(home),
        mHistory(home.store()),
        mStrings(home.machine().regionName(), home.machine().timeZoneName()),
        mComposer({home.store(), mHistory, mTexts, mStrings}) {}

  Result<ComposedReport> compose() {
    if (!mHome.isThere())
      return Error{ErrorKind::absent, "there is nothing to report: no data folder"};
    if (const Outcome loaded = loadAgentTexts(mTexts, mHome.machine()); !loaded)
      return loaded.error();
    SettingsFiles& settings = mHome.store().settings();
    settings.applyDateLocaleFromSettings(mStrings);
    const auto last = settings.schedulerSettings()["DateOfLastReportSentByEmail"].asDate();
    return mComposer.compose(last, mHome.now());
  }
  void keep(const ComposedReport& report) { mComposer.keep(report, mHome.now()); }

 private:
  CommandHome& mHome;
  History mHistory;
  ZAN_StringTable mTexts;
  ZAN_StringUtils mStrings;
  ReportComposer mComposer;
};

class SilentLog final : public SystemLog {
 public:
  void write(const std::string&) override {}
};

/// By the system's mail program.
Outcome sendBySendmail(const ComposedReport& report, CommandHome& home) {
  const QtApplication application;
  QtRunLoop loop;
  SystemClock clock;
  SilentLog log;
  QtNetwork network;
  LinuxProcesses processes(loop, {{}, clock.now(), home.machine().homeFolder()});
  MailSender sender({clock, loop, home.machine(), processes, log, network});
  Outcome result;
  sender.sendEmailWithMessage(report.message, report.subject, report.mail.recipients,
                              [&](const Outcome& outcome) {
                                result = outcome;
                                loop.quit(0);
                              });
  loop.run();
  return result;
}

}  // namespace

void printLines(std::string_view rest, std::ostream& out) {
  while (!rest.empty()) {
    const std::size_t line = rest.find('\n');
    out << printable(rest.substr(0, line)) << '\n';
    rest.remove_prefix(line == std::string_view::npos ? rest.size() : line + 1);
  }
}

int previewReportMail(CommandHome& home, bool json, const Console& console) {
  const auto report = Maker(home).compose();
  if (!report) return failed(console, report.error());
  const std::string by = report->goesOverSmtp() ? report->mail.server : "/usr/sbin/sendmail";
  if (json) {
    console.out << jsonText(ZAN_Value::dictionary({{"by", by},
                                                   {"from", report->mail.sender},
                                                   {"to", report->mail.recipients},
                                                   {"subject", report->subject},
                                                   {"message", report->message}}));
    return kDone;
  }
  printLines("By: " + by + "\nFrom: " + report->mail.sender + "\nTo: " + report->mail.recipients +
                 "\nSubject: " + report->subject + "\n\n" + report->message,
             console.out);
  return kDone;
}

int sendReportMail(CommandHome& home, bool json, const Console& console) {
  Maker maker(home);
  const auto report = maker.compose();
  if (!report) return failed(console, report.error());
  int code = kDone;
  if (report->goesOverSmtp()) {
    code = printMailDialogue(report->mail, report->subject, report->message, json, console);
  } else if (const Outcome sent = sendBySendmail(*report, home); !sent) {
    code = failed(console, sent.error());
  }
  maker.keep(*report);
  return code;
}

}  // namespace corvana
