#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/simulated/TemporaryFolder.h"

namespace corvana::test {

/// A script of this folder that runs servers. It says where they listen, in one line, once they do,
/// and ends when this goes.
class ServerScript {
 public:
  explicit ServerScript(const std::vector<std::string>& arguments);
  ServerScript(const ServerScript&) = delete;
  ServerScript& operator=(const ServerScript&) = delete;
  ~ServerScript();

  /// By name; none when nothing runs.
  std::map<std::string, std::string> ports;
  /// What does not run, by name, with the reason.
  std::map<std::string, std::string> troubles;

 private:
  int mPid = -1;
  int mInput = -1;
};

/// Mail servers of another make in a process of their own, by name: "plain" (no TLS, takes CRAM-MD5
/// in either case), "good", "misnamed", "expired", "unknown" (STARTTLS, named after their
/// certificate) and "implicit" (TLS from the start). They know "user" with "pa ss".
class MailServer {
 public:
  MailServer();
  /// Empty when they run, else why they do not.
  const std::string& trouble() const { return mTrouble; }
  std::string port(const std::string& name) const { return mScript->ports.at(name); }
  /// Of the authority to trust.
  std::string authority() const { return mFolder.at("certificates/trusted.crt"); }
  /// "sender recipients tls|clear mechanism" of the n-th mail, from 1; empty when there is none.
  std::string envelope(int number) const;
  std::string message(int number) const;
  std::string mailbox() const { return mFolder.at("mailbox"); }
  std::string certificates() const { return mFolder.at("certificates"); }

 private:
  TemporaryFolder mFolder;
  std::string mTrouble;
  std::unique_ptr<ServerScript> mScript;
};

}  // namespace corvana::test
