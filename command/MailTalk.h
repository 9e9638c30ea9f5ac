#pragma once

#include "command/CommandHome.h"
#include "mail/report/OutgoingMail.h"
#include "platform/linux/LinuxProcesses.h"
#include "platform/qt/QtNetwork.h"
#include "platform/qt/QtRunLoop.h"

namespace corvana {

inline constexpr std::string_view kTestSubject = "Corvana 9";
inline constexpr std::string_view kTestBody =
    "This message was sent to test how Corvana 9 reaches your mail server.\n";

/// What an observer of a session hears, printed as it comes.
class MailTalk {
 public:
  explicit MailTalk(Writer writer) : mWriter(writer) {}

  void status(std::int64_t status) const {
    mWriter.tell(ZAN_Value::dictionary({{"status", status}}), "status " + std::to_string(status));
  }
  void information(const std::string& text) const {
    mWriter.tell(ZAN_Value::dictionary({{"info", text}}), "info " + printable(text));
  }
  void error(const SMTPError& error) const {
    const ZAN_Value value =
        ZAN_Value::dictionary({{"code", error.code}, {"text", error.messageKey}});
    mWriter.tell(ZAN_Value::dictionary({{"error", value}}),
                 "error " + std::to_string(error.code) + ' ' + error.messageKey);
  }

 private:
  Writer mWriter;
};

/// A sender of mail with all that it leans on, for one command.
struct MailLine {
  explicit MailLine(CommandHome& home)
      : processes(loop, {{}, clock.now(), home.machine().homeFolder()}),
        sender(clock, loop, home.machine(), processes, log, network) {}

  class SilentLog final : public SystemLog {
   public:
    void write(const std::string&) override {}
  };
  const QtApplication application;
  QtRunLoop loop;
  SystemClock clock;
  SilentLog log;
  QtNetwork network;
  LinuxProcesses processes;
  MailSender sender;
};

/// Sends a letter by the standards and waits for the end; with a talk the session is shown as it
/// goes on.
Delivery talkToServer(CommandHome& home, const MailSettings& settings, const Letter& letter,
                      const std::optional<MailTalk>& talk);
/// Who was refused is named, too.
Answer answerOf(const Delivery& delivery);

Answer mailSetup(Arguments& arguments, const Console& console);
Answer mailShow(Arguments& arguments, const Console& console);
Answer mailOff(Arguments& arguments, const Console& console);

}  // namespace corvana
