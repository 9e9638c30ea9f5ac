#include "tests/real/mail/MailServer.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

namespace corvana::test {
namespace {

constexpr const char* kPython = "/usr/bin/python3";

std::string contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

MailServer::MailServer() {
  const std::string tools = CORVANA_MAIL_TOOLS;
  const std::string certificates = mFolder.at("certificates");
  const std::string mailbox = mFolder.at("mailbox");
  std::filesystem::create_directories(certificates);
  std::filesystem::create_directories(mailbox);
  const std::string make =
      "sh '" + tools + "/certificates.sh' '" + certificates + "' > /dev/null 2>&1";
  if (std::system(make.c_str()) != 0) {
    mTrouble = "openssl makes no certificates here";
    return;
  }
  if (std::system((std::string(kPython) + " -c 'import aiosmtpd' 2> /dev/null").c_str()) != 0) {
    mTrouble = "python3-aiosmtpd is not installed";
    return;
  }
  mScript = std::make_unique<ServerScript>(
      std::vector<std::string>{kPython, "-Wignore", tools + "/smtpd.py", certificates, mailbox});
  if (mScript->ports.empty()) mTrouble = "the mail servers did not start";
}

ServerScript::ServerScript(const std::vector<std::string>& arguments) {
  std::array<int, 2> input{}, output{};
  if (pipe2(input.data(), O_CLOEXEC) != 0 || pipe2(output.data(), O_CLOEXEC) != 0) std::abort();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  std::vector<std::string> words = arguments;
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  if (posix_spawn(&mPid, pointers[0], &actions, nullptr, pointers.data(), environ) != 0)
    std::abort();
  posix_spawn_file_actions_destroy(&actions);
  close(input[0]);
  close(output[1]);
  mInput = input[1];
  std::string line;
  for (char c = 0; read(output[0], &c, 1) == 1 && c != '\n';) line += c;
  close(output[0]);
  std::istringstream all(line);
  for (std::string word; all >> word;) {
    const std::size_t at = word.find_first_of("=!");
    (word[at] == '!' ? troubles : ports)[word.substr(0, at)] = word.substr(at + 1);
  }
}

ServerScript::~ServerScript() {
  close(mInput);
  waitpid(mPid, nullptr, 0);
}

std::string MailServer::envelope(int number) const {
  return contentsOf(mFolder.at("mailbox/" + std::to_string(number) + ".txt"));
}

std::string MailServer::message(int number) const {
  return contentsOf(mFolder.at("mailbox/" + std::to_string(number) + ".eml"));
}

}  // namespace corvana::test
