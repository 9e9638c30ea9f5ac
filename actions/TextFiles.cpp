#include "actions/TextFiles.h"

#include <algorithm>

#include "actions/LocalDates.h"
#include "platform/Clock.h"
#include "platform/Machine.h"

namespace corvana {

namespace {

constexpr std::size_t kShortLogLimit = 100001;
constexpr std::size_t kShortLogCut = 75000;
constexpr std::size_t kLastExecutionsLimit = 28;
constexpr std::size_t kLastExecutionsKept = 25;
constexpr double kCurrentPathInterval = 1.0;
constexpr std::string_view kLastExecutions = "_Corvana 9 (Last Executions).txt";

/// One "?" for each character that ASCII does not have.
std::string asciiOf(std::string_view text) {
  std::string ascii;
  ascii.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      ascii += c;
    } else if ((byte & 0xC0) != 0x80) {
      ascii += '?';
    }
  }
  return ascii;
}

/// The text up to and with its line `count`, when it has `limit` lines or more.
std::string_view firstLines(std::string_view text, std::size_t limit, std::size_t count) {
  const auto breaks = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
  const std::size_t lines = breaks + (text.empty() || text.back() == '\n' ? 0 : 1);
  if (lines < limit) return text;
  std::size_t end = 0;
  for (std::size_t line = 0; line < count; ++line) end = text.find('\n', end) + 1;
  return text.substr(0, end);
}

std::string textAt(const std::string& path) {
  auto file = ZAN_FilesUtils::readFile(path);
  return file ? std::move(file->bytes) : std::string();
}

}  // namespace

TextFiles::TextFiles(DataFiles& files, Machine& machine, LocalDates& dates)
    : mFiles(files), mMachine(machine), mDates(dates) {}

void TextFiles::addToLogFile(std::string_view text) {
  const DataFiles::Lock held = mFiles.lock(DataFolder::kShortLog);
  const std::string path = mFiles.folder().dataFolderPathWithFileName(DataFolder::kShortLog);
  const auto file = ZAN_FilesUtils::identity(path);
  // Two that cut it at once would lose what one of them adds.
  if (held.isHeld() && file && file->size >= kShortLogLimit) {
    const std::string log = asciiOf(textAt(path));
    if (log.size() >= kShortLogLimit)
      writeText(path, std::string_view(log).substr(kShortLogCut), true);
  }
  const std::string date = mDates.calendar().format(mFiles.clock().now(), "%Y-%m-%d %H:%M:%S");
  (void)mFiles.appendLinesToFile(path, asciiOf(date + "\n" + applicationName() + "\n" +
                                               ZAN_StringUtils::oneEntry(text) + "\n"));
}

void TextFiles::addToCheckPackagesFile(std::string_view text) {
  const DataFiles::Lock held = mFiles.lock(DataFolder::kCheckPackages);
  const std::string path = mFiles.folder().dataFolderPathWithFileName(DataFolder::kCheckPackages);
  const std::string date = mDates.strings().getShortTimeDate(mFiles.clock().now());
  (void)mFiles.appendLinesToFile(
      path, ZAN_StringUtils::format("%@ - %@\n", {date, ZAN_StringUtils::oneLine(text)}));
}

void TextFiles::addLastExecution(std::string_view text, const std::string& rootPath) {
  if (!ZAN_FilesUtils::isFolder(rootPath)) return;
  const std::string path = ZAN_FilesUtils::joinedPath(rootPath, kLastExecutions);
  const std::string old = textAt(path);
  const std::string date = mDates.strings().getShortTimeDate(mFiles.clock().now());
  const std::string_view kept = firstLines(old, kLastExecutionsLimit, kLastExecutionsKept);
  writeText(path,
            ZAN_StringUtils::format("%@ %@\n%@", {date, ZAN_StringUtils::oneLine(text), kept}),
            true);
}

void TextFiles::saveCurrentPath(std::string_view path) {
  const ReferenceTime now = mFiles.clock().now();
  // A date farther ahead than the interval comes from a clock that was set back since.
  if (now <= mNextSaveCurrentPath && mNextSaveCurrentPath <= now + kCurrentPathInterval) return;
  mNextSaveCurrentPath = now + kCurrentPathInterval;
  writeText(mFiles.folder().dataFolderPathWithFileName(DataFolder::kCurrentPath), path, false);
}

void TextFiles::saveCurrentPathForFirstError(std::optional<std::string_view> path) {
  const DataFolder& folder = mFiles.folder();
  if (path) writeText(folder.dataFolderPathWithFileName(DataFolder::kFirstErrorPath), *path, false);
  (void)ZAN_FilesUtils::removeFile(folder.pathOf(DataFolder::kLastErrorPath));
}

void TextFiles::saveCurrentPathForLastError(std::string_view path) {
  writeText(mFiles.folder().dataFolderPathWithFileName(DataFolder::kLastErrorPath), path, false);
}

std::optional<std::string> TextFiles::readCurrentPath() const {
  return textOf(DataFolder::kCurrentPath);
}

std::optional<std::string> TextFiles::readCurrentPathForFirstError() const {
  return textOf(DataFolder::kFirstErrorPath);
}

std::optional<std::string> TextFiles::readCurrentPathForLastError() const {
  return textOf(DataFolder::kLastErrorPath);
}

void TextFiles::clearCurrentPath() {
  (void)ZAN_FilesUtils::removeFile(mFiles.folder().pathOf(DataFolder::kCurrentPath));
}

std::string TextFiles::reportFileNameForDate(std::optional<ReferenceTime> date) const {
  return datedReport("%Y%m%d Corvana Report.txt", date);
}

std::string TextFiles::reportEmailFileNameForDate(std::optional<ReferenceTime> date) const {
  return datedReport("%Y%m%d Corvana Email Report.txt", date);
}

void TextFiles::addToReportFile(std::string_view text) {
  const ReferenceTime now = mFiles.clock().now();
  const std::string path = reportFileNameForDate(now);
  const DataFiles::Lock held = mFiles.lock("Report");
  (void)mFiles.appendLinesToFile(
      path, ZAN_StringUtils::format("%@ (%@) - %@\n",
                                    {mDates.strings().getShortTimeDate(now), applicationName(),
                                     ZAN_StringUtils::oneEntry(text)}));
}

void TextFiles::writeReportEmail(std::string_view text, ReferenceTime day) {
  writeText(reportEmailFileNameForDate(day), text, true);
}

std::string TextFiles::datedReport(std::string_view pattern,
                                   std::optional<ReferenceTime> date) const {
  const ReferenceTime day = date.value_or(mFiles.clock().now());
  return ZAN_FilesUtils::joinedPath(mFiles.folder().reportsFolderPath(),
                                    mDates.calendar().format(day, pattern));
}

std::string TextFiles::applicationName() const {
  const std::string bundle = mMachine.bundlePath();
  const std::string path = bundle.empty() ? mMachine.executablePath() : bundle;
  return std::string(ZAN_FilesUtils::lastPathComponent(ZAN_FilesUtils::pathWithoutExtension(path)));
}

std::optional<std::string> TextFiles::textOf(std::string_view name) const {
  auto file = ZAN_FilesUtils::readFile(mFiles.folder().pathOf(name));
  if (!file) return {};
  return std::move(file->bytes);
}

void TextFiles::writeText(const std::string& path, std::string_view text, bool synchronise) {
  (void)mFiles.writeFileAtPath(path, {}, std::as_bytes(std::span(text)), synchronise);
}

}  // namespace corvana
