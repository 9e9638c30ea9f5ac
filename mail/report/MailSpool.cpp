#include "mail/report/MailSpool.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <random>
#include <span>
#include <utility>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {
namespace {

constexpr std::string_view kExtension = ".mail";
constexpr unsigned kPrivateFile = 0600;
constexpr unsigned kPrivateFolder = 0700;

ZAN_Value dateOrNull(const std::optional<ReferenceTime>& date) {
  return date ? ZAN_Value::date(*date) : ZAN_Value();
}

ZAN_Value stored(const WaitingMail& mail) {
  ZAN_Value recipients = ZAN_Value::array();
  for (const std::string& recipient : mail.mail.recipients) recipients.append(recipient);
  ZAN_Value value = ZAN_Value::dictionary({{"Sender", mail.mail.sender},
                                           {"Recipients", recipients},
                                           {"Message", ZAN_Value::data(mail.mail.message)},
                                           {"Subject", mail.subject},
                                           {"Queued", ZAN_Value::date(mail.queued)},
                                           {"Next", ZAN_Value::date(mail.next)},
                                           {"Attempts", mail.attempts},
                                           {"Doubtful", mail.isDoubtful ? 1 : 0},
                                           {"Reason", mail.reason}});
  if (mail.taken) value.setValue("Taken", dateOrNull(mail.taken));
  if (mail.givenUp) value.setValue("GivenUp", dateOrNull(mail.givenUp));
  if (mail.report) {
    value.setValue("Since", ZAN_Value::date(mail.report->since));
    value.setValue("Until", ZAN_Value::date(mail.report->until));
  }
  return value;
}

std::string textOf(const ZAN_Value& data) {
  const auto bytes = data.bytes();
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::optional<WaitingMail> mailFrom(const std::string& path) {
  const auto file = ZAN_FilesUtils::readFile(path);
  if (!file) return std::nullopt;
  const auto value = ZAN_Unarchiver::unarchiveObjectWithData(std::as_bytes(std::span(file->bytes)));
  if (!value || !(*value)["Message"].isData()) return std::nullopt;
  WaitingMail mail;
  mail.mail = {value->string("Sender"), {}, textOf((*value)["Message"])};
  for (const ZAN_Value& recipient : (*value)["Recipients"].elements())
    mail.mail.recipients.push_back(recipient.string());
  mail.subject = value->string("Subject");
  mail.queued = (*value)["Queued"].asDate().value_or(0);
  mail.next = (*value)["Next"].asDate().value_or(0);
  mail.attempts = static_cast<int>(value->integer("Attempts"));
  mail.isDoubtful = value->integer("Doubtful") != 0;
  mail.taken = (*value)["Taken"].asDate();
  mail.givenUp = (*value)["GivenUp"].asDate();
  mail.reason = value->string("Reason");
  const auto since = (*value)["Since"].asDate(), until = (*value)["Until"].asDate();
  if (since && until) mail.report = ReportPeriod{*since, *until};
  return mail;
}

}  // namespace

WaitingMail WaitingMail::made(FinishedMail mail, std::string subject, ReferenceTime now) {
  std::array<char, 48> name{};
  std::snprintf(name.data(), name.size(), "%015.0f-%08x", std::max(now, 0.0) * 1000,
                std::random_device{}());
  WaitingMail waiting;
  waiting.name = name.data() + std::string(kExtension);
  waiting.mail = std::move(mail);
  waiting.subject = std::move(subject);
  waiting.queued = waiting.next = now;
  return waiting;
}

void WaitingMail::noteTaken(const std::vector<SMTPConnector::Refusal>& refusals,
                            ReferenceTime now) {
  taken = now;
  isDoubtful = false;
  std::erase_if(mail.recipients, [&](const std::string& recipient) {
    return std::ranges::none_of(refusals, [&](const SMTPConnector::Refusal& refusal) {
      return refusal.address == recipient && !refusal.isForGood;
    });
  });
}

MailSpool::MailSpool(const std::string& hiddenFolder)
    : mFolder(ZAN_FilesUtils::joinedPath(hiddenFolder, "Mail")), mWriter(hiddenFolder) {}

std::vector<WaitingMail> MailSpool::read(std::vector<std::string>* damaged) const {
  std::vector<WaitingMail> mails;
  const auto names = ZAN_FilesUtils::listFolder(mFolder);
  if (!names) return mails;
  for (const std::string& name : *names) {
    if (!name.ends_with(kExtension)) continue;
    auto mail = mailFrom(ZAN_FilesUtils::joinedPath(mFolder, name));
    if (!mail) {
      if (damaged != nullptr) damaged->push_back(ZAN_FilesUtils::joinedPath(mFolder, name));
      continue;
    }
    mail->name = name;
    mails.push_back(std::move(*mail));
  }
  return mails;
}

Outcome MailSpool::write(const WaitingMail& mail) const {
  if (const Outcome made = ZAN_FilesUtils::createFolder(mFolder, kPrivateFolder); !made)
    return made;
  ZAN_FileWriter::Options options;
  options.attributes.mode = kPrivateFile;
  return mWriter.write(ZAN_FilesUtils::joinedPath(mFolder, mail.name),
                       ZAN_Archiver::archivedDataWithRootObject(stored(mail)), options);
}

bool MailSpool::contains(const WaitingMail& mail) const {
  return ZAN_FilesUtils::exists(ZAN_FilesUtils::joinedPath(mFolder, mail.name));
}

Outcome MailSpool::remove(const WaitingMail& mail) const {
  return ZAN_FilesUtils::removeFile(ZAN_FilesUtils::joinedPath(mFolder, mail.name));
}

}  // namespace corvana
