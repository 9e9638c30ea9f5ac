#include "execute/ReadBack.h"

#include <algorithm>
#include <utility>

#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "actions/RecordKeys.h"
#include "execute/VersionPlaces.h"
#include "platform/Clock.h"

namespace corvana {

namespace {

constexpr double kWeek = 7 * 86400.0;
constexpr double kPercentAWeek = 10;
constexpr std::uint64_t kFilesReadBack = 20;
constexpr std::uint64_t kBytesReadBack = 50 << 20;
constexpr std::size_t kKeptErrors = 200;

}  // namespace

VerifiedShare ReadBack::shareOf(ReferenceTime now, double percent) {
  const auto parts =
      static_cast<std::uint32_t>(std::clamp(100 / std::max(percent, 0.1), 1.0, 1000.0));
  return {.parts = parts,
          .part = static_cast<std::uint32_t>(static_cast<std::uint64_t>(now / kWeek) % parts)};
}

Outcome ReadBack::perform(const VerifiedShare& share, const ZAN_Value& settings,
                          const KeptVersion& newest, Volumes& volumes, const TaskHooks& hooks) {
  // A source that is not there leaves what the engine knows of its copy.
  const auto sources = settings.isNull()
                           ? std::vector<VersionTarget>()
                           : VersionPlaces(newest, settings, volumes).originsThatAreThere();
  for (const VersionTarget& source : sources) mWatch.add(source.folder);
  std::string first;
  TaskHooks told = hooks;
  told.failed = [&](std::string text) {
    if (first.empty()) first = text;
    if (hooks.failed) hooks.failed(std::move(text));
  };
  const Outcome done = mEngine.verify(share, sources, told, mCounts);
  mWatch.clear();
  if (mCounts.mismatches == 0) return done;
  const bool isOne = mCounts.mismatches == 1;
  const char* const what = mCounts.unit == "pack" ? (isOne ? " pack of the repository is"
                                                           : " packs of the repository are")
                                                  : (isOne ? " file is" : " files are");
  return Error{ErrorKind::damaged, "THE COPY IS DAMAGED: " + std::to_string(mCounts.mismatches) +
                                       what + " not what was copied (" + first +
                                       "). Check the disk, and restore nothing over good files"};
}

void ReadBack::note(std::int64_t reference) const {
  auto* action = mFiles.tree.rootItem().actionForReference(reference);
  if (!action) return;
  action->addInChangesList(ZAN_Value::date(mFiles.store.clock().now()), VersionKey::verified);
  action->addInChangesList(mCounts.mismatches, VersionKey::mismatches);
}

void ReadBack::afterRun(const ZAN_Value& settings, bool isFirst, Volumes& volumes,
                        ExecuteControl& control, ExecuteEnd& end) {
  const ReferenceTime now = mFiles.store.clock().now();
  const auto last = settings[VersionKey::verified].asDate();
  if (!end.isExecuted() || settings.integer(VersionKey::none) != 0 ||
      (!isFirst && last && now - *last < kWeek && now >= *last))
    return;
  const auto newest = mEngine.newest();
  if (!newest) return;
  std::uint64_t errors = 0;
  std::vector<std::string> texts;
  const Outcome verified =
      perform(isFirst ? VerifiedShare{.files = kFilesReadBack, .bytes = kBytesReadBack}
                      : shareOf(now, kPercentAWeek),
              settings, *newest, volumes,
              {.inAll = [](std::uint64_t, std::uint64_t) {},
               .goesOn = [&](const std::string&, std::uint64_t,
                             std::uint64_t) { return mWatch.check() && control.waitWhilePaused(); },
               .failed =
                   [&](std::string text) {
                     ++errors;
                     if (texts.size() < kKeptErrors) texts.push_back(std::move(text));
                   },
               .done = {}});
  if (control.stopReason() != StopReason::none) return;
  if (mCounts.mismatches > 0) {
    end.code = ExecuteCode::completedWithErrors;
    end.reason = verified.error().text;
    end.errors += errors;
    end.errorTexts.insert(end.errorTexts.end(), texts.begin(), texts.end());
  } else if (!verified) {
    return;
  } else if (isFirst && mCounts.files > 0) {
    end.isReadBack = true;
  }
  note(settings.integer("Ref"));
}

}  // namespace corvana
