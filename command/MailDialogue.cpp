#include "command/MailDialogue.h"

#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>

#include "command/CommandHome.h"
#include "command/RunningAgent.h"
#include "mail/smtp/EmailAddress.h"
#include "mail/smtp/SMTPConnector.h"
#include "mail/smtp/ZAN_SMTPClient.h"
#include "platform/linux/LinuxMachine.h"
#include "platform/linux/SystemClock.h"
#include "platform/qt/QtApplication.h"
#include "platform/qt/QtNetwork.h"

namespace corvana {
namespace {

/// What an observer hears, in lines.
class Printer {
 public:
  Printer(bool json, const Console& console) : mJson(json), mConsole(console) {}

  void status(std::int64_t status) {
    if (mJson)
      object("status", status);
    else
      mConsole.out << "status " << status << std::endl;
  }
  void information(const std::string& text) {
    if (mJson)
      object("info", text);
    else
      mConsole.out << "info " << printable(text) << std::endl;
  }
  void error(const SMTPError& error) {
    if (mJson)
      object("error", ZAN_Value::dictionary({{"code", error.code}, {"text", error.messageKey}}));
    else
      mConsole.out << "error " << error.code << ' ' << printable(error.messageKey) << std::endl;
  }
  void log(const std::string& line) {
    mConsole.err << "corvana9: " << printable(line) << std::endl;
  }

 private:
  void object(std::string_view key, const ZAN_Value& value) {
    mConsole.out << jsonText(ZAN_Value::dictionary({{key, value}}), true) << std::flush;
  }

  const bool mJson;
  const Console& mConsole;
};

}  // namespace

int printMailDialogue(const MailSettings& settings, const std::string& subject,
                      const std::string& body, bool json, const Console& console) {
  Printer printer(json, console);
  std::optional<QtApplication> application;
  if (settings.tlsMode != 0) application.emplace();
  SystemClock clock;
  QtNetwork network;
  const LinuxMachine machine;
  const SMTPSurroundings surroundings{network, clock, machine.hostName(), machine.systemVersion(),
                                      [&](const std::string& line) { printer.log(line); }};
  std::shared_ptr<SMTPConnector> connector;
  const SMTPClientDelegate delegate{
      [&](const ZAN_SMTPClient&, std::int64_t status) { printer.status(status); },
      [&](const ZAN_SMTPClient&, const SMTPError& error) {
        printer.error(error);
        // Nobody wants to watch how a server waits for words that will not come.
        connector->hangUpSoon();
      },
      [&](const ZAN_SMTPClient&, const std::string& text) { printer.information(text); }};
  try {
    const auto client = ZAN_SMTPClient::clientWithServerAddress(
        settings.server, settings.ports, settings.tlsMode, settings.username, settings.password,
        settings.authMethod);
    client->setDelegate(std::make_shared<SMTPClientDelegate>(delegate));
    connector = client->connectorForMessage(surroundings, body, subject, settings.sender,
                                            settings.recipients, settings.crFormat);
  } catch (const std::invalid_argument& exception) {
    printer.error({0, exception.what()});
    return failed(console, {ErrorKind::refused, settings.server + ": " + exception.what()});
  }
  if (connector == nullptr) {
    printer.error({SMTPError::kInvalidAddress, "Invalid email address"});
    return failed(console, {ErrorKind::refused, "the sender or a recipient is no e-mail address"});
  }
  connector->start();
  if (const Outcome outcome = connector->outcome(); !outcome) {
    return failed(console, {ErrorKind::unavailable, printable(outcome.error().text)});
  }
  return kDone;
}

}  // namespace corvana
