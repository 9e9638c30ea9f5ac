#include <fstream>
#include <istream>
#include <iterator>

#include "command/CommandHome.h"
#include "command/Commands.h"
#include "command/MailDialogue.h"
#include "mail/smtp/StoredMailSettings.h"

namespace corvana {
namespace {

constexpr const char* kTestSubject = "Corvana 9";
constexpr const char* kTestBody =
    "This message was sent to test how Corvana 9 reaches your mail server.\n";

/// Pipes too, so that a password need not lie in a file.
Result<std::string> readText(const std::string& path, const Console& console) {
  if (path == "-") return std::string(std::istreambuf_iterator<char>(console.in), {});
  std::ifstream file(path, std::ios::binary);
  std::string text{std::istreambuf_iterator<char>(file), {}};
  if (!file.is_open() || file.bad()) return Error{ErrorKind::unreadable, path + ": cannot be read"};
  return text;
}

std::string firstLine(const std::string& text) {
  const std::string line = text.substr(0, text.find('\n'));
  return line.ends_with('\r') ? line.substr(0, line.size() - 1) : line;
}

}  // namespace

int mailCommand(Arguments& arguments, const Console& console) {
  const bool json = arguments.json();
  MailSettings settings;
  const auto server = arguments.option("--server");
  if (!server) {
    CommandHome home(console);
    if (home.isThere()) settings = storedMailSettings(home.store().settings());
  }
  settings.server = server.value_or(settings.server);
  settings.ports = arguments.option("--ports").value_or(settings.ports);
  settings.tlsMode = arguments.number("--tls", 0, 2).value_or(settings.tlsMode);
  settings.authMethod = arguments.number("--method", 0, 1000).value_or(settings.authMethod);
  settings.username = arguments.option("--user").value_or(settings.username);
  settings.sender = arguments.option("--from").value_or(settings.sender);
  settings.recipients = arguments.option("--to").value_or(settings.recipients);
  settings.crFormat = arguments.number("--crformat", -1000, 1000).value_or(settings.crFormat);
  const auto passwordFile = arguments.option("--password-file");
  const auto bodyFile = arguments.option("--body-file");
  const std::string subject = arguments.option("--subject").value_or(kTestSubject);
  if (settings.server.empty() && !server) {
    arguments.complain("--server is missing, and no mail server is set for the reports");
  }
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(console, words.error());
  if (passwordFile) {
    const auto password = readText(*passwordFile, console);
    if (!password) return failed(console, password.error());
    settings.password = firstLine(*password);
  }
  std::string body = kTestBody;
  if (bodyFile) {
    auto text = readText(*bodyFile, console);
    if (!text) return failed(console, text.error());
    body = std::move(text).value();
  }
  return printMailDialogue(settings, subject, body, json, console);
}

}  // namespace corvana
