#pragma once

#include <string>

namespace corvana {

class OutgoingMail;
class TriggerEvaluation;
class ZAN_Value;
struct Records;

/// Says by message, by e-mail or both that an action was not executed for many days. Thread: main.
class NotExecutedNotice {
 public:
  NotExecutedNotice(Records& records, TriggerEvaluation& evaluation, OutgoingMail& mail)
      : m(records), mEvaluation(evaluation), mMail(mail) {}

  /// Whether the evaluation has found such an action.
  bool isWaiting() const;
  /// The notice of the first one.
  void postNext();
  void actionNotExecutedSince(const ZAN_Value& settings);

 private:
  void sendByMail(const std::string& text);

  Records& m;
  TriggerEvaluation& mEvaluation;
  OutgoingMail& mMail;
};

}  // namespace corvana
