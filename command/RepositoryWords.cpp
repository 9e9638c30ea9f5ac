#include "command/RepositoryWords.h"

#include <filesystem>
#include <system_error>
#include <utility>

#include "actions/RecordKeys.h"
#include "command/ActionWords.h"
#include "command/CopiesRequest.h"
#include "command/VersionCommands.h"
#include "execute/restic/Repository.h"

namespace corvana {

namespace {

std::string absolute(const std::string& path) {
  std::error_code failed;
  return std::filesystem::absolute(path, failed).lexically_normal().string();
}

}  // namespace

RepositoryWords::RepositoryWords(Arguments& arguments)
    : mEngine(arguments.option("--engine")),
      mAddress(arguments.option("--repository")),
      mPasswordFile(arguments.option("--password-file")) {
  if (mEngine && *mEngine != RepositoryKey::kEngine && *mEngine != "plain")
    arguments.complain("--engine is plain or restic, not \"" + *mEngine + "\"");
  if (mAddress && mEngine && !isRestic())
    arguments.complain("--repository goes with --engine restic");
  if (mAddress && mAddress->empty()) arguments.complain("--repository wants an address");
}

bool RepositoryWords::isRestic() const {
  return mEngine ? *mEngine == RepositoryKey::kEngine : mAddress.has_value();
}

std::optional<std::string> RepositoryWords::folder() const {
  if (!mAddress || RepositoryAddress(*mAddress).isRemote()) return std::nullopt;
  return absolute(*mAddress);
}

std::string RepositoryWords::shown() const {
  if (!mAddress) return {};
  const auto local = folder();
  return local ? *local : RepositoryAddress(*mAddress).shown();
}

std::string RepositoryWords::passwordFile() const {
  return mPasswordFile ? absolute(*mPasswordFile) : std::string();
}

Outcome RepositoryWords::keepWhatOpens(CommandHome& home, const std::string& place) const {
  const std::string folder = home.store().folder().hiddenFolderPath();
  const auto known = RepositorySecret::find(place, folder);
  RepositorySecret secret = known ? *known : RepositorySecret();
  const bool hasSecretAddress = mAddress && RepositoryAddress(*mAddress).hasSecret();
  if (hasSecretAddress) secret.address = *mAddress;
  if (mPasswordFile) {
    const auto password = RepositorySecret::passwordFrom(passwordFile());
    if (!password) return password.error();
  } else if (!known || secret.password.empty()) {
    auto typed = typedPassword("the repository " + place);
    if (!typed) return typed.error();
    if (typed->empty()) return Error{ErrorKind::refused, place + ": a repository needs a password"};
    secret.password = *std::move(typed);
  } else if (!hasSecretAddress) {
    return {};
  }
  if (mPasswordFile && !hasSecretAddress) return {};
  const auto kept = secret.keep(place, folder);
  return kept ? Outcome() : Outcome(kept.error());
}

void RepositoryWords::applyTo(ZAN_Value& record) const {
  if (mEngine || mAddress) {
    if (isRestic()) {
      record.setValue(EngineKey::name, RepositoryKey::kEngine);
    } else {
      record.removeKey(EngineKey::name);
    }
  }
  if (mAddress && folder()) record.removeKey(RepositoryKey::address);
  if (mAddress && !folder()) {
    record.setValue(RepositoryKey::address, shown());
    record.removeKey("ItemsDestination");
  }
  if (mPasswordFile) record.setValue(RepositoryKey::passwordFile, passwordFile());
}

Outcome RepositoryWords::check(const ZAN_Value& record) {
  if (record.string(EngineKey::name) != RepositoryKey::kEngine ||
      record.integer(VersionKey::bytes) == 0)
    return {};
  return Error{ErrorKind::refused,
               record.string("Title") +
                   ": --keep with a size goes with plain folders only, since versions in a "
                   "repository share what they hold, with those of others, too; give an age, such "
                   "as --keep 90d, or all"};
}

Answer repositoryCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  const auto passwordFile = arguments.option("--password-file");
  const auto words = arguments.words(1, 1);
  if (!words) return wrongWords(words.error());
  CommandHome home(console);
  ZAN_Value request = ZAN_Value::dictionary({{"kind", "test"}});
  std::int64_t reference = 0;
  if (const auto number = referenceFrom(words->front())) {
    reference = *number;
    if (passwordFile)
      return wrongWords(
          {ErrorKind::refused, "--password-file goes with an address; corvana9 edit " +
                                   std::to_string(reference) +
                                   " --password-file FILE changes that of an action"});
  } else {
    std::vector<std::string> given{"--repository", words->front()};
    if (passwordFile) given.insert(given.end(), {"--password-file", *passwordFile});
    Arguments asWords(given);
    const RepositoryWords repository(asWords);
    if (const auto wrong = asWords.words(0, 0); !wrong) return wrongWords(wrong.error());
    if (const Outcome kept = repository.keepWhatOpens(home, repository.shown()); !kept)
      return kept.error();
    request.setValue("from", repository.shown());
    request.setValue("passwordFile", repository.passwordFile());
    request.setValue("engine", RepositoryKey::kEngine);
  }
  const auto found = performRequest(home, console, reference, request);
  if (!found) return found.error();
  Answer answer(*found, printable(found->string("place") + ": " + found->string("text")) + '\n');
  if (found->integer("code") != 0) {
    answer.code = kCouldNot;
    answer.text.clear();
    answer.reason = printable(found->string("reason"));
  }
  return answer;
}

}  // namespace corvana
