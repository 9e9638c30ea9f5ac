#include "core/work/Announce.h"

#include "actions/ProgrammedAction.h"
#include "core/record/Records.h"
#include "core/work/ActionQueue.h"
#include "platform/UserInterface.h"

namespace corvana {

void Announce::showAnnounceForQueueHead() {
  if (mQueue.empty()) return;
  const ProgrammedAction* action = m.tree.rootItem().actionForReference(mQueue.head().ref);
  if (action == nullptr) return;
  closeAnnounceWindow();
  m.state.mProgress = {};
  m.changes.note(Change::progress);
  m.platform.userInterface.openAnnounceWindow(action->getTitle());
  mRef = mQueue.head().ref;
  m.platform.userInterface.rearrangeMessageWindows();
}

bool Announce::isOutOfDate() const {
  return isOpen() && (mQueue.empty() || mQueue.head().ref != *mRef);
}

void Announce::closeAnnounceWindow() {
  if (!isOpen()) return;
  mRef.reset();
  m.platform.userInterface.closeAnnounceWindow();
  m.platform.userInterface.rearrangeMessageWindows();
}

}  // namespace corvana
