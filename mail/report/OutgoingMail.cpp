#include "mail/report/OutgoingMail.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <random>
#include <utility>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "core/record/Records.h"

namespace corvana {

namespace {

constexpr std::array<double, 4> kPauses{300, 1800, 7200, 21600};
/// The network may need a while after a start.
constexpr double kAfterStart = 60;
/// A timer does not count while the machine sleeps.
constexpr double kLongestWait = 3600;
constexpr double kKeptWhenGivenUp = 30 * 86400.0;

double pauseAfter(int attempts) {
  return kPauses.at(
      std::min<std::size_t>(static_cast<std::size_t>(std::max(attempts, 1)), kPauses.size()) - 1);
}

}  // namespace

Result<FinishedMail> finishedMail(const MailSettings& settings, const Letter& letter,
                                  ReferenceTime now, const ZAN_DateUtils& calendar) {
  const auto from = EmailAddress::list(settings.sender);
  if (!from) return from.error();
  const auto to = EmailAddress::list(settings.recipients);
  if (!to) return to.error();
  const MailMessage message{from->front(),
                            *to,
                            letter.subject,
                            letter.text,
                            letter.html,
                            now,
                            calendar.components(now).utcOffset,
                            MailMessage::newMessageId(now, from->front())};
  FinishedMail mail{from->front().email, {}, message.wireForm()};
  for (const EmailAddress& address : *to) mail.recipients.push_back(address.email);
  return mail;
}

OutgoingMail::OutgoingMail(Records& records, MailSender& sender)
    : m(records), mSender(sender), mSpool(records.store.folder().hiddenFolderPath()) {}

void OutgoingMail::start() {
  const ReferenceTime now = m.platform.clock.now();
  std::vector<std::string> damaged;
  for (WaitingMail& mail : mSpool.read(&damaged)) {
    // The end of the process came between the server's yes and what follows from it.
    if (mail.taken && mail.mail.recipients.empty()) {
      noteDelivered(mail.report);
      forget(mail);
    } else if (mail.givenUp && *mail.givenUp < now - kKeptWhenGivenUp) {
      forget(mail);
    } else {
      // A clock that was wrong once holds nothing back.
      mail.next = std::min(mail.next, now + kPauses.back());
      mMails.push_back(std::move(mail));
    }
  }
  for (const std::string& path : damaged)
    m.platform.systemLog.write(path + ": this mail cannot be read and is not sent");
  mTimer = m.platform.runLoop.performAfter(kAfterStart, [this] { work(); });
}

Outcome OutgoingMail::send(const MailSettings& settings, const Letter& letter) {
  return settings.isStandard && settings.goesOverSmtp() ? putOnDisk(settings, letter)
                                                        : sendAtOnce(settings, letter);
}

Outcome OutgoingMail::sendAtOnce(const MailSettings& settings, const Letter& letter) {
  const auto fail = [this](const Error& error) {
    sayFailure(m.texts.text("ReportEmailError", {error.text}));
  };
  const auto done = [this, fail, report = letter.report](const Outcome& outcome) {
    outcome ? noteDelivered(report) : fail(outcome.error());
  };
  if (!settings.goesOverSmtp()) {
    mSender.sendEmailWithMessage(letter.text, letter.subject, settings.recipients, done);
    return {};
  }
  // It is read as HTML.
  Outcome begun = mSender.send(settings, letter.subject, htmlEscaped(letter.text), done);
  if (!begun) fail(begun.error());
  return begun;
}

Outcome OutgoingMail::putOnDisk(const MailSettings& settings, const Letter& letter) {
  const auto failed = [this](Error error) {
    sayFailure(m.texts.text("ReportEmailError", {error.text}));
    return error;
  };
  const ReferenceTime now = m.platform.clock.now();
  auto mail = finishedMail(settings, letter, now, m.store.dates().calendar());
  if (!mail) return failed(mail.error());
  WaitingMail waiting = WaitingMail::made(std::move(mail).value(), letter.subject, now);
  waiting.report = letter.report;
  if (const Outcome written = mSpool.write(waiting); !written) return failed(written.error());
  mMails.push_back(std::move(waiting));
  // Whoever sends it has something to note first.
  m.platform.runLoop.cancel(
      std::exchange(mTimer, m.platform.runLoop.performAfter(0, [this] { work(); })));
  return {};
}

std::optional<ReferenceTime> OutgoingMail::reportedUntil() const {
  auto until = m.preferences.prefForKey(kDelivered).asDate();
  for (const WaitingMail& mail : mMails)
    if (mail.isWaiting() && mail.report) until = std::max(until.value_or(0), mail.report->until);
  return until;
}

std::optional<ReferenceTime> OutgoingMail::reportSince() const {
  auto since = reportedUntil();
  if (since) return since;
  // All that was ever tried was given up.
  for (const WaitingMail& mail : mMails)
    if (mail.report) since = std::min(since.value_or(mail.report->since), mail.report->since);
  return since;
}

/// The oldest that is due, one at a time; then whenever the next one is.
void OutgoingMail::work() {
  if (mIsSending) return;
  const ReferenceTime now = m.platform.clock.now();
  double wait = kLongestWait;
  std::erase_if(mMails, [this](const WaitingMail& mail) { return !mSpool.contains(mail); });
  for (WaitingMail& mail : mMails) {
    if (!mail.isWaiting()) continue;
    if (mail.next <= now) return deliver(mail);
    wait = std::min(wait, mail.next - now);
  }
  m.platform.runLoop.cancel(std::exchange(mTimer, 0));
  if (std::ranges::any_of(mMails, &WaitingMail::isWaiting))
    mTimer = m.platform.runLoop.performAfter(wait, [this] { work(); });
}

void OutgoingMail::deliver(WaitingMail& mail) {
  if (mail.isDoubtful) {
    const std::string text = m.texts.text("MailMayComeTwice", {mail.subject});
    m.log.addSchedulerLog(LogCode::message, text);
    m.store.texts().addToReportFile(text);
  }
  ++mail.attempts;
  mail.next = m.platform.clock.now() + pauseAfter(mail.attempts);
  // An end of this process in the middle counts as a try.
  keep(mail);
  mIsSending = true;
  MailSender::Steps steps;
  steps.bodyBegins = [spool = mSpool, mail]() mutable {
    mail.isDoubtful = true;
    return spool.write(mail);
  };
  steps.taken = [spool = mSpool, &clock = m.platform.clock, mail](const auto& refusals) mutable {
    mail.noteTaken(refusals, clock.now());
    // If this fails it is noted again on the main thread.
    (void)spool.write(mail);
  };
  // As it is set up now: what was wrong may have been mended.
  mSender.deliver(
      storedMailSettings(m.store.settings()), mail.mail, std::move(steps),
      [this, name = mail.name](const Delivery& delivery) { delivered(name, delivery); });
}

void OutgoingMail::delivered(const std::string& name, const Delivery& delivery) {
  mIsSending = false;
  if (WaitingMail* mail = mailNamed(name)) {
    if (!delivery.isTaken) {
      notDelivered(*mail, delivery);
    } else {
      mail->noteTaken(delivery.refusals, m.platform.clock.now());
      noteDelivered(mail->report);
      sayRefusals(*mail, delivery);
      // The server is back.
      for (WaitingMail& other : mMails)
        if (other.name != name) other.next = std::min(other.next, m.platform.clock.now());
      if (mail->mail.recipients.empty()) {
        forget(*mail);
        std::erase_if(mMails, [&](const WaitingMail& one) { return one.name == name; });
      } else {
        mail->reason = delivery.refusals.front().reason;
        keep(*mail);
      }
    }
  }
  m.platform.runLoop.performAfter(0, [this] { work(); });
}

void OutgoingMail::notDelivered(WaitingMail& mail, const Delivery& delivery) {
  const bool isFirst = mail.reason != delivery.reason;
  mail.reason = delivery.reason;
  mail.isDoubtful = mail.isDoubtful || delivery.isDoubtful;
  for (const SMTPConnector::Refusal& refusal : delivery.refusals)
    if (refusal.isForGood) std::erase(mail.mail.recipients, refusal.address);
  if (mail.mail.recipients.empty() || mail.attempts >= kMostAttempts) return giveUp(mail);
  keep(mail);
  // Once for each cause.
  if (isFirst) {
    sayFailure(m.texts.text("MailWaits",
                            {mail.subject, mail.reason, m.strings.getShortTimeDate(mail.next)}));
  }
}

void OutgoingMail::giveUp(WaitingMail& mail) {
  mail.givenUp = m.platform.clock.now();
  keep(mail);
  sayFailure(m.texts.text("MailGivenUp", {mail.subject, mail.reason}));
}

void OutgoingMail::sayRefusals(const WaitingMail& mail, const Delivery& delivery) {
  for (const SMTPConnector::Refusal& refusal : delivery.refusals)
    if (refusal.isForGood)
      sayFailure(m.texts.text("MailRefused", {mail.subject, refusal.address, refusal.reason}));
}

void OutgoingMail::keep(const WaitingMail& mail) {
  if (const Outcome written = mSpool.write(mail); !written)
    m.platform.systemLog.write(written.error().text);
}

void OutgoingMail::forget(const WaitingMail& mail) {
  if (const Outcome removed = mSpool.remove(mail); !removed)
    m.platform.systemLog.write(removed.error().text);
}

void OutgoingMail::sayFailure(const std::string& text) {
  m.preferences.setPref(
      kLastFailure,
      ZAN_Value::dictionary({{"Date", ZAN_Value::date(m.platform.clock.now())}, {"Text", text}}));
  m.messages.displayStandardMessage(text, LogCode::message);
  m.log.showErrorState(LogCode::message);
}

/// A gap before the report is still to be told of.
void OutgoingMail::noteDelivered(const std::optional<ReportPeriod>& report) {
  const auto known = m.preferences.prefForKey(kDelivered).asDate();
  if (report && (!known || (report->since <= *known && *known < report->until)))
    m.preferences.setPref(kDelivered, ZAN_Value::date(report->until));
  m.preferences.setPref(kLastFailure, {});
  m.preferences.savePrefs();
}

WaitingMail* OutgoingMail::mailNamed(const std::string& name) {
  const auto found = std::ranges::find(mMails, name, &WaitingMail::name);
  return found == mMails.end() ? nullptr : &*found;
}

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
