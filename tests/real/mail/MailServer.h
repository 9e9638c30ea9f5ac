#pragma once

#include <cstdio>
#include <map>
#include <string>

#include "platform/simulated/TemporaryFolder.h"

namespace corvana::test {

/// Mail servers of another make in a process of their own, by name: "plain" (no TLS, takes CRAM-MD5
/// in either case), "good", "misnamed", "expired", "unknown" (STARTTLS, named after their
/// certificate) and "implicit" (TLS from the start). They know "user" with "pa ss".
class MailServer {
 public:
  MailServer();
  MailServer(const MailServer&) = delete;
  MailServer& operator=(const MailServer&) = delete;
  ~MailServer();

  /// Empty when they run, else why they do not.
  const std::string& trouble() const { return mTrouble; }
  std::string port(const std::string& name) const { return mPorts.at(name); }
  /// Of the authority to trust.
  std::string authority() const { return mFolder.at("certificates/trusted.crt"); }
  /// "sender recipients tls|clear mechanism" of the n-th mail, from 1; empty when there is none.
  std::string envelope(int number) const;
  std::string message(int number) const;

 private:
  TemporaryFolder mFolder;
  std::map<std::string, std::string> mPorts;
  std::string mTrouble;
  int mPid = -1;
  int mInput = -1;
};

}  // namespace corvana::test
