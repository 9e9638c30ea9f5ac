#pragma once

#include "mail/report/ReportFacts.h"
#include "mail/smtp/MailSettings.h"

namespace corvana {

/// A report as it is read: one page of text and the same in HTML, for telephones and for printing,
/// by day and by night, with nothing in it that is loaded from anywhere. However many runs there
/// were it stays within 100 KB as a mail; what needs attention comes first. Thread: any.
class ReportPage {
 public:
  /// `gatherer` for dates in words; `frequency` as `MailKey::frequency` has it.
  ReportPage(const ReportFacts& facts, const ReportGatherer& gatherer, const ZAN_StringTable& texts,
             const ZAN_StringUtils& strings, std::int64_t frequency = MailKey::kDaily);

  /// "Backups of workstation: 2 failed, 14 completed".
  std::string subject() const;
  std::string text() const;
  std::string html() const;

 private:
  /// What stands on a line: on the left with something below, on the right with something below.
  struct Row {
    std::string left, leftBelow, right, rightBelow;
  };
  std::string result() const;
  std::string periodInWords() const;
  std::string diskInWords(const ReportFacts::Disk& disk) const;
  std::string footer() const;
  std::vector<Row> ranRows() const;
  std::vector<Row> comingRows() const;
  std::vector<ReportAttention> shownAttention() const;

  const ReportFacts& m;
  const ReportGatherer& mGatherer;
  const ZAN_StringTable& mTexts;
  const ZAN_StringUtils& mStrings;
  std::int64_t mFrequency;
};

}  // namespace corvana
