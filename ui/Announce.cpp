#include "ui/Announce.h"

#include <string>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "actions/ActionTree.h"
#include "actions/ProgrammedAction.h"
#include "core/work/ActionQueue.h"
#include "platform/UserInterface.h"

namespace corvana {

Announce::Announce(UserInterface& userInterface, ActionTree& tree, ActionQueue& queue,
                   const ZAN_StringUtils& strings, const ZAN_StringTable& texts)
    : mUserInterface(userInterface), mTree(tree), mQueue(queue), mStrings(strings), mTexts(texts) {}

void Announce::showAnnounceForQueueHead() {
  if (mQueue.empty()) return;
  const ProgrammedAction* action = mTree.rootItem().actionForReference(mQueue.head().ref);
  if (action == nullptr) return;
  closeAnnounceWindow();
  mUserInterface.openAnnounceWindow(action->getTitle());
  mUserInterface.setAnnounceProgress(0, "0");
  mUserInterface.setActionExecuted(-1, 0, 0);
  mRef = mQueue.head().ref;
  mUserInterface.rearrangeMessageWindows();
}

void Announce::closeUnlessForQueueHead() {
  if (isOpen() && (mQueue.empty() || mQueue.head().ref != *mRef)) closeAnnounceWindow();
}

void Announce::closeAnnounceWindow() {
  if (!isOpen()) return;
  mRef.reset();
  mUserInterface.closeAnnounceWindow();
  mUserInterface.rearrangeMessageWindows();
}

void Announce::showProgress(const ZAN_Value& report) {
  const double progress = report["ProgressValue"].doubleValue();
  const std::int64_t errors = report.integer("ErrorsCounter");
  const std::uint64_t sizeCopied = report["SizeCopied"].unsignedValue();
  if (isOpen()) {
    std::string text = ZAN_StringUtils::format(
        "%@ (%@)", {mStrings.getIntegerWithSeparators(report.integer("FilesCopied")),
                    mStrings.getShortSizeBytes(sizeCopied)});
    if (errors != 0) {
      text += " " + mTexts.text("MiniErrorsResults", {mStrings.getIntegerWithSeparators(errors)});
    }
    mUserInterface.setAnnounceProgress(progress, text);
  }
  // Whatever a sender claims, what is drawn is a percentage.
  const int percent = progress >= 0 && progress <= 100 ? static_cast<int>(progress)
                      : progress > 100                 ? 100
                                                       : 0;
  mUserInterface.setActionExecuted(static_cast<std::int64_t>(sizeCopied), percent, errors);
}

}  // namespace corvana
