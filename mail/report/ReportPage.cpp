#include "mail/report/ReportPage.h"

#include <algorithm>
#include <cmath>

namespace corvana {
namespace {

constexpr std::size_t kMostAttention = 25;
constexpr std::size_t kMostRows = 60;
constexpr std::size_t kMostDisks = 8;
constexpr std::size_t kMostSkipped = 15;

// Colours of the day, and in the media query those of the night.
constexpr std::string_view kHead =
    "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\">\n"
    "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
    "<meta name=\"color-scheme\" content=\"light dark\">\n"
    "<style>\n"
    ":root{color-scheme:light dark}\n"
    "body{margin:0;padding:24px 20px;background:#fff;color:#1c2430;font:15px/1.45 system-ui,"
    "-apple-system,\"Segoe UI\",Roboto,\"Helvetica Neue\",Arial,sans-serif}\n"
    ".page{max-width:600px;margin:0 auto;overflow-wrap:anywhere}\n"
    "h1{font-size:20px;line-height:1.3;margin:0 0 4px}\n"
    "h2{font-size:13px;margin:28px 0 6px;color:#5b6675}\n"
    "p{margin:0}\n"
    ".soft{color:#5b6675;font-size:13px}\n"
    ".due{border-left:3px solid #b8761f;padding:2px 0 2px 12px;margin:14px 0}\n"
    ".failed{border-color:#c0393b}\n"
    ".due b{display:block}\n"
    ".bar{height:6px;border-radius:3px;background:#e9edf2;margin:4px 0 10px}\n"
    ".bar div{height:6px;border-radius:3px;background:#2f6db3}\n"
    ".tight div{background:#b8761f}\n"
    "table{width:100%;border-collapse:collapse;border-bottom:1px solid #e3e8ee}\n"
    "td{border-top:1px solid #e3e8ee;padding:7px 0;vertical-align:top;text-align:left}\n"
    "td+td{text-align:right;padding-left:16px;white-space:nowrap;color:#5b6675}\n"
    "ul{margin:0;padding-left:18px}\n"
    ".foot{margin-top:28px}\n"
    "@media (prefers-color-scheme:dark){\n"
    "body{background:#171b21;color:#e6eaf0}\n"
    "h2,.soft,td+td{color:#9aa6b5}\n"
    ".bar{background:#2a313b}.bar div{background:#5d9be0}.tight div{background:#dba24a}\n"
    "table,td{border-color:#2a313b}\n"
    ".due{border-color:#dba24a}.failed{border-color:#e0676a}\n"
    "}\n"
    "@media print{body{padding:0;font-size:11pt;background:#fff;color:#000}.due,tr{break-inside:"
    "avoid}}\n"
    "</style></head>\n<body><div class=\"page\">\n";

std::string element(std::string_view tag, std::string_view attributes, std::string_view text) {
  std::string html = "<" + std::string(tag);
  if (!attributes.empty()) html.append(" ").append(attributes);
  return html + ">" + htmlEscaped(text) + "</" + std::string(tag) + ">\n";
}

std::string below(const std::string& text) {
  return text.empty() ? "" : "<div class=\"soft\">" + htmlEscaped(text) + "</div>";
}

int percentUsed(const ReportFacts::Disk& disk) {
  return static_cast<int>(std::lround(100.0 * static_cast<double>(disk.size - disk.free) /
                                      static_cast<double>(disk.size)));
}

}  // namespace

ReportPage::ReportPage(const ReportFacts& facts, const ReportGatherer& gatherer,
                       const ZAN_StringTable& texts, const ZAN_StringUtils& strings,
                       std::int64_t frequency)
    : m(facts), mGatherer(gatherer), mTexts(texts), mStrings(strings), mFrequency(frequency) {}

/// "2 failed, 14 completed".
std::string ReportPage::result() const {
  std::string text;
  const auto add = [&](const std::string& words) { text += (text.empty() ? "" : ", ") + words; };
  if (m.failed > 0) add(mTexts.text("ReportFailed", {m.failed}));
  if (m.overdue() > 0) add(mTexts.text("ReportOverdue", {m.overdue()}));
  if (m.withErrors > 0) add(mTexts.text("ReportWithErrors", {m.withErrors}));
  if (m.completed > 0 && text.empty()) return mTexts.text("ReportAllCompleted", {m.completed});
  if (m.completed > 0) add(mTexts.text("ReportCompleted", {m.completed}));
  if (!text.empty()) return text;
  if (!m.lastRun) return mTexts.text("ReportNothingRan");
  return mTexts.text("ReportNothingRanSince", {mGatherer.pastDate(*m.lastRun, m.period.until)});
}

std::string ReportPage::subject() const {
  return mTexts.text("ReportSubject", {m.machine, result()});
}

std::string ReportPage::periodInWords() const {
  return mTexts.text("ReportPeriod", {m.machine, mStrings.getShortTimeDate(m.period.since),
                                      mStrings.getShortTimeDate(m.period.until)});
}

std::string ReportPage::diskInWords(const ReportFacts::Disk& disk) const {
  const std::string free = mStrings.getShortSizeBytes(disk.free);
  return disk.full
             ? mTexts.text("ReportDiskFull", {disk.name, free, mStrings.getShortDate(*disk.full)})
             : mTexts.text("ReportDisk", {disk.name, free});
}

std::string ReportPage::footer() const {
  if (mFrequency == MailKey::kAfterFailures)
    return mTexts.text("ReportFooterFailures", {m.machine});
  return mFrequency == MailKey::kOnMondays ? mTexts.text("ReportFooterWeekly", {m.machine})
                                           : mTexts.text("ReportFooterDaily", {m.machine});
}

/// The gravest; the rest in one line.
std::vector<ReportAttention> ReportPage::shownAttention() const {
  std::vector<ReportAttention> shown = m.attention;
  if (shown.size() <= kMostAttention) return shown;
  shown.resize(kMostAttention);
  shown.push_back({m.attention[kMostAttention].weight,
                   mTexts.text("ReportMoreAttention", {m.attention.size() - kMostAttention}),
                   mTexts.text("ReportDoLook")});
  return shown;
}

std::vector<ReportPage::Row> ReportPage::ranRows() const {
  std::vector<Row> rows;
  std::int64_t moreRuns = 0;
  for (const ReportFacts::Ran& ran : m.ran) {
    if (rows.size() == kMostRows) {
      moreRuns += ran.runs;
      continue;
    }
    Row row{ran.title,
            mTexts.text("ReportRuns", {ran.runs}),
            {},
            ZAN_StringUtils::getDuration(std::llround(ran.seconds))};
    if (ran.withoutNews > 0)
      row.leftBelow += ", " + mTexts.text("ReportWithoutNews", {ran.withoutNews});
    else if (ran.files)
      row.leftBelow +=
          ", " + mTexts.text("ReportFiles", {mStrings.getUnsignedWithSeparators(*ran.files)});
    if (ran.bytes) row.right = mStrings.getShortSizeBytes(*ran.bytes);
    if (row.right.empty()) std::swap(row.right, row.rightBelow);
    rows.push_back(std::move(row));
  }
  if (moreRuns > 0)
    rows.push_back({mTexts.text("ReportMoreActions", {m.ran.size() - kMostRows}),
                    mTexts.text("ReportRuns", {moreRuns}),
                    {},
                    {}});
  return rows;
}

std::vector<ReportPage::Row> ReportPage::comingRows() const {
  std::vector<Row> rows;
  for (const ReportFacts::Coming& coming : m.coming)
    rows.push_back({coming.title, {}, coming.when, {}});
  return rows;
}

std::string ReportPage::text() const {
  std::string text = result() + "\n" + periodInWords() + "\n";
  for (const ReportAttention& one : shownAttention())
    text += "\n* " + one.title + "\n  " + one.text + "\n";
  const auto section = [&](const std::string& title) { text += "\n" + title + "\n"; };
  if (!m.disks.empty()) section(mTexts.text("ReportRoom"));
  for (std::size_t i = 0; i < std::min(m.disks.size(), kMostDisks); ++i)
    text += "  " + diskInWords(m.disks[i]) + "\n";
  const auto table = [&](const std::string& title, const std::vector<Row>& rows) {
    if (!rows.empty()) section(title);
    for (const Row& row : rows) {
      text += "  " + row.left;
      for (const std::string* more : {&row.leftBelow, &row.right, &row.rightBelow})
        if (!more->empty()) text += ", " + *more;
      text += "\n";
    }
  };
  table(mTexts.text("ReportRan"), ranRows());
  table(mTexts.text("ReportComing"), comingRows());
  const auto list = [&](const std::string& title, const std::vector<std::string>& lines) {
    if (!lines.empty()) section(title);
    for (std::size_t i = 0; i < std::min(lines.size(), kMostSkipped); ++i)
      text += "  " + lines[i] + "\n";
  };
  list(mTexts.text("ReportSkipped"), m.skipped);
  list(mTexts.text("ReportNotes"), m.notes);
  return text + "\n" + footer() + "\n";
}

std::string ReportPage::html() const {
  std::string html(kHead);
  html += element("h1", {}, result()) + element("p", "class=\"soft\"", periodInWords());
  for (const ReportAttention& one : shownAttention()) {
    const bool isFailed = one.weight == ReportAttention::Weight::failed;
    html += std::string("<div class=\"due") + (isFailed ? " failed" : "") + "\">" +
            element("b", {}, one.title) + element("span", "class=\"soft\"", one.text) + "</div>\n";
  }
  if (!m.disks.empty()) html += element("h2", {}, mTexts.text("ReportRoom"));
  for (std::size_t i = 0; i < std::min(m.disks.size(), kMostDisks); ++i) {
    const ReportFacts::Disk& disk = m.disks[i];
    html += element("p", {}, diskInWords(disk)) +
            (disk.isTight() ? "<div class=\"bar tight\">" : "<div class=\"bar\">") +
            "<div style=\"width:" + std::to_string(percentUsed(disk)) + "%\"></div></div>\n";
  }
  const auto table = [&](const std::string& title, const std::vector<Row>& rows) {
    if (rows.empty()) return;
    html += element("h2", {}, title) + "<table>\n";
    for (const Row& row : rows)
      html += "<tr><td>" + htmlEscaped(row.left) + below(row.leftBelow) + "</td><td>" +
              htmlEscaped(row.right) + below(row.rightBelow) + "</td></tr>\n";
    html += "</table>\n";
  };
  table(mTexts.text("ReportRan"), ranRows());
  table(mTexts.text("ReportComing"), comingRows());
  const auto list = [&](const std::string& title, const std::vector<std::string>& lines) {
    if (lines.empty()) return;
    html += element("h2", {}, title) + "<ul>\n";
    for (std::size_t i = 0; i < std::min(lines.size(), kMostSkipped); ++i)
      html += element("li", {}, lines[i]);
    html += "</ul>\n";
  };
  list(mTexts.text("ReportSkipped"), m.skipped);
  list(mTexts.text("ReportNotes"), m.notes);
  return html + element("p", "class=\"soft foot\"", footer()) + "</div></body></html>\n";
}

}  // namespace corvana
