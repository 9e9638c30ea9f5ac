#include "ui/FloatingIconLines.h"

#include <utility>

#include "core/record/Records.h"
#include "core/work/ProgressWords.h"
#include "core/work/Work.h"
#include "platform/Clock.h"
#include "ui/StatusItem.h"

namespace corvana {

namespace {

constexpr double kDay = 86400;

}  // namespace

std::vector<std::string> floatingIconLines(const UserInterfaceSources& sources, std::size_t count) {
  std::vector<std::string> lines;
  if (count == 0) return lines;
  lines.push_back(sources.statusItem.shownTitle());
  if (std::string progress =
          progressInWords(sources.work.supervisor, sources.records.texts, sources.records.strings);
      !progress.empty() && lines.size() < count)
    lines.push_back(std::move(progress));
  // While nothing runs and nothing holds the agent up, the first line names what comes next.
  bool isNamed = sources.statusItem.titleColour() == MenuColour::information &&
                 !sources.work.supervisor.isExecuting() && sources.work.queue.empty();
  const ReferenceTime now = sources.records.platform.clock.now();
  for (const NextAction& next : sources.work.evaluation.actionsNextList()) {
    // Those without a date come last.
    if (lines.size() >= count || !next.hasDate) break;
    if (std::exchange(isNamed, false)) continue;
    const std::string when = next.date - now < kDay
                                 ? sources.records.strings.getShortTime(next.date)
                                 : sources.records.strings.getShortDate(next.date);
    lines.push_back(when + "  " + next.name());
  }
  return lines;
}

}  // namespace corvana
