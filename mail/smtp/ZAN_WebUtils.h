#pragma once

#include <optional>
#include <string>

namespace corvana {

class Clock;
class Network;

/// The simplest way to hand a message to a mail server. The way by the system's mail program is
/// MailSender's.
class ZAN_WebUtils {
 public:
  enum class MailError { unresolved = 1, noSocket = 2, notConnected = 3, notSent = 4 };

  /// Says the whole dialogue to port 25 in one breath, without encryption and without reading a
  /// single reply, waits 2 s and hangs up. "<br>" of the text becomes a line end. Nothing when
  /// every byte was taken. Throws std::invalid_argument "sendMailTo bad parameters" for a sender
  /// without recipient. Blocks.
  static std::optional<MailError> sendMailTo(Network& network, Clock& clock,
                                             const std::optional<std::string>& recipient,
                                             const std::optional<std::string>& sender,
                                             const std::string& subject, const std::string& text,
                                             const std::string& server);

  /// "<br>" as line ends.
  static std::string withLineEnds(std::string text);
};

}  // namespace corvana
