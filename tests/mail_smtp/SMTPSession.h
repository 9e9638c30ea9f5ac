#pragma once

#include <memory>
#include <string>
#include <vector>

#include "mail/smtp/SMTPConnector.h"
#include "mail/smtp/ZAN_SMTPClient.h"
#include "platform/simulated/SimulatedPlatform.h"

namespace corvana::test {

/// One message sent to scripted servers in virtual time, and everything that was said about it.
struct SMTPSession {
  SimulatedPlatform machine;
  std::string ports = "25";
  std::int64_t tlsMode = 0;
  std::int64_t method = 0;
  std::string user;
  std::string password;
  bool credentialsSetLater = false;
  bool observed = false;
  bool hangsUpSoon = false;  ///< when observed
  std::string from = "anna@example.com";
  std::string to = "bob@example.com";
  std::string body = "Hello";
  std::int64_t crFormat = 1;

  std::vector<std::string> log;
  std::vector<std::string> told;  ///< "status N", "info TEXT", "error CODE TEXT"
  bool success = false;
  std::string reason;  ///< why not
  double seconds = 0;

  SMTPCaller caller() {
    return {"annas-machine", 101500, [this](const std::string& line) { log.push_back(line); }};
  }

  void run(const PeerScript& script) {
    run([&script](const std::string&, std::int64_t) { return script; });
  }
  void run(std::function<PeerScript(const std::string&, std::int64_t)> script) {
    machine.network.script = std::move(script);
    const auto client = ZAN_SMTPClient::clientWithServerAddress("mail.example.com", ports, tlsMode,
                                                                user, password, method);
    std::shared_ptr<SMTPConnector> connector;
    if (credentialsSetLater) client->setCredentials(user, password);
    if (observed) {
      client->setDelegate(std::make_shared<SMTPClientDelegate>(SMTPClientDelegate{
          [this](const ZAN_SMTPClient&, std::int64_t status) {
            told.push_back("status " + std::to_string(status));
          },
          [this, &connector](const ZAN_SMTPClient&, const SMTPError& error) {
            told.push_back("error " + std::to_string(error.code) + " " + error.messageKey);
            if (hangsUpSoon) connector->hangUpSoon();
          },
          [this](const ZAN_SMTPClient&, const std::string& text) {
            told.push_back("info " + text);
          }}));
    }
    const double begin = machine.clock.monotonic();
    connector = client->connectorForMessage(machine.network, machine.clock, caller(), body, "Hi",
                                            from, to, crFormat);
    if (connector == nullptr) return;
    connector->start();
    success = connector->success();
    if (!success) reason = connector->outcome().error().text;
    seconds = machine.clock.monotonic() - begin;
  }
  std::string sent() const { return machine.network.transcript(); }
};

/// A server that takes a message, from its reply to the greeting on.
inline PeerScript greeting() { return PeerScript().line("220 mail.example.com"); }
inline PeerScript& takesMail(PeerScript& script, int recipients = 1) {
  script.hear("MAIL FROM: <anna@example.com>\r\n").line("250 ok");
  for (int i = 0; i < recipients; ++i) script.hear("RCPT TO: ").line("250 ok");
  return script.hear("DATA\r\n")
      .line("354 go on")
      .hear("\r\n.\r\n")
      .line("250 taken")
      .hear("QUIT\r\n")
      .line("221 bye")
      .close();
}

}  // namespace corvana::test
