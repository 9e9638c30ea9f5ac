#include "core/record/Deadline.h"

#include <utility>

namespace corvana {

Deadline::Deadline(DeadlineList& list, ReferenceTime at) : mList(list), mAt(at) {
  mList.mDeadlines.push_back(this);
}

Deadline::~Deadline() { std::erase(mList.mDeadlines, this); }

void Deadline::set(ReferenceTime at) {
  if (std::exchange(mAt, at) != at && mList.onSet) mList.onSet();
}

void DeadlineList::moveDeadlines(double jump, ReferenceTime now) {
  for (Deadline* deadline : mDeadlines) {
    if (deadline->at() > now) deadline->set(deadline->at() + jump);
  }
  for (const auto& body : mWhenMoved) body(jump, now);
}

void DeadlineList::whenMoved(std::function<void(double, ReferenceTime)> body) {
  mWhenMoved.push_back(std::move(body));
}

}  // namespace corvana
