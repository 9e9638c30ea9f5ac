#pragma once

#include <string>
#include <vector>

#include "mail/smtp/MailSender.h"

namespace corvana::test {

/// Keeps what is sent; a server named "nowhere" cannot even be tried.
class RecordingMail final : public MailSender {
 public:
  using MailSender::MailSender;
  Outcome send(const MailSettings& settings, const std::string& subject, const std::string& body,
               Done done) override {
    if (settings.server == "nowhere")
      return Error{ErrorKind::unavailable, "nowhere: no such server"};
    sent.push_back({settings, subject, body, std::move(done)});
    return {};
  }
  struct Mail {
    MailSettings settings;
    std::string subject;
    std::string body;
    Done done;  ///< to be told how it went
  };
  std::vector<Mail> sent;
};

}  // namespace corvana::test
