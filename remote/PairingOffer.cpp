#include "remote/PairingOffer.h"

#include <utility>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "core/record/Records.h"
#include "remote/Frames.h"
#include "remote/ServiceName.h"

namespace corvana {

namespace {

constexpr double kPatience = 120;
/// The last word is still on its way.
constexpr double kFarewell = 1;
constexpr int kMostNumbers = 9;
/// Who shows no digits in time makes room for others; the user needs longer.
constexpr ServerSockets::VisitLimits kLimits{4, 2, 4096, 2 * kPatience};

}  // namespace

class PairingOffer::Talk final : public Visit {
 public:
  Talk(PairingOffer& offer, Visitor& visitor)
      : mOffer(offer),
        mVisitor(visitor),
        mPairing(Pairing::Role::accepting, MachineIdentity::of(offer.m.platform.machine)) {}
  ~Talk() override { mOffer.gone(*this); }

  void heard(std::span<const std::byte> bytes) override {
    mFrames.take(bytes);
    for (;;) {
      const auto message = mFrames.next();
      if (!message) return mVisitor.leave();
      if (!*message) return;
      const bool hadDigits = mPairing.digits().has_value();
      const auto answer = mPairing.receive(**message);
      if (!answer) return mVisitor.leave();
      if (!answer->empty()) say(*answer);
      if (!hadDigits && mPairing.digits()) {
        // One at a time: two pairs of digits would be mixed up.
        if (mOffer.mAsked != nullptr) return mVisitor.leave();
        mOffer.ask(*this);
      }
      endWhenPaired();
    }
  }

  void confirm() {
    say(mPairing.confirm());
    endWhenPaired();
  }
  void leave() { mVisitor.leave(); }
  const Pairing& pairing() const { return mPairing; }
  const std::string& address() const { return mVisitor.address(); }
  bool isDone() const { return mPairing.paired().has_value(); }

 private:
  void say(std::span<const std::byte> message) {
    mVisitor.say(Frames::framed(Pairing::kLengthBytes, message));
  }
  void endWhenPaired() {
    const auto machine = mPairing.paired();
    if (!machine) return;
    mVisitor.leave();
    mOffer.paired(*machine);
  }

  PairingOffer& mOffer;
  Visitor& mVisitor;
  Pairing mPairing;
  Frames mFrames{Pairing::kLengthBytes, Pairing::kMostBytes};
};

PairingOffer::PairingOffer(Records& records) : m(records), mMachines(records.store) {}

PairingOffer::~PairingOffer() { end(); }

void PairingOffer::begin() {
  end();
  auto socket = m.platform.serverSockets.listenForVisits(0, kLimits, [this](Visitor& visitor) {
    // Whoever comes while digits are compared would take the place of the one that shows them.
    return mAsked != nullptr ? nullptr : std::make_unique<Talk>(*this, visitor);
  });
  if (!socket) return tell(socket.error().text);
  mSocket = std::move(socket).value();
  mOffer = std::make_shared<int>(0);
  publish();
  mEnd = m.platform.runLoop.performAfter(kPatience, [this] {
    mEnd = 0;
    if (mAsked != nullptr) return;
    end();
    tell(m.texts.text("PairingNobodyCame"));
  });
}

ZAN_Value PairingOffer::machines() const {
  ZAN_Value list = ZAN_Value::array();
  for (const PairedMachine& one : mMachines.all())
    list.append(
        ZAN_Value::dictionary({{"name", one.machine.name}, {"sender", one.machine.sender()}}));
  return list;
}

void PairingOffer::rename(const std::string& sender, const std::string& name) {
  const auto done = name.empty() ? mMachines.forget(sender) : mMachines.rename(sender, name);
  if (!done) return tell(done.error().text);
  m.changes.note(Change::preferences);
}

void PairingOffer::publish() {
  const std::string name = ServiceName::machineName({}, m.platform.machine.networkName());
  tell(m.texts.text("PairingWaits", {name}));
  mPublication = m.platform.services.publish(
      {name, kPairingServiceType, kRemoteServiceDomain, mSocket->port(), {}},
      {[this](const std::string& known) { tell(m.texts.text("PairingWaits", {known})); },
       [name, number = 1](const std::string&) mutable {
         return ++number > kMostNumbers ? std::string() : name + "-" + std::to_string(number);
       },
       [this](int, const std::string& reason) { tell(reason); }});
  if (m.platform.services.isAway()) tell(m.texts.text("PairingWithoutAvahi"));
}

void PairingOffer::end() {
  mAsked = nullptr;
  mOffer.reset();
  m.platform.runLoop.cancel(std::exchange(mEnd, 0));
  mPublication.reset();
  mSocket.reset();
}

void PairingOffer::tell(std::string text) {
  mText = std::move(text);
  m.changes.note(Change::preferences);
}

void PairingOffer::ask(Talk& talk) {
  mAsked = &talk;
  const MachineIdentity& other = talk.pairing().other();
  const std::string& digits = *talk.pairing().digits();
  tell(m.texts.text("PairingAsks", {other.name}));
  m.platform.userInterface.ask(
      Window::preferences, m.texts.text("PairingTitle", {other.name}),
      m.texts.text("PairingText", {digits.substr(0, 3) + " " + digits.substr(3), other.identifier,
                                   other.user, talk.address()}),
      // It may be answered at once, within the talk.
      [this, offer = std::weak_ptr<int>(mOffer)](bool accepted) {
        if (offer.expired()) return;
        m.platform.runLoop.performAfter(0, [this, offer, accepted] {
          if (!offer.expired()) answered(accepted);
        });
      });
}

void PairingOffer::answered(bool accepted) {
  if (mAsked == nullptr) {
    end();
    return tell(m.texts.text("PairingGone"));
  }
  Talk& talk = *mAsked;
  if (accepted) {
    tell(m.texts.text("PairingAccepted", {talk.pairing().other().name}));
    return talk.confirm();
  }
  const std::string name = talk.pairing().other().name;
  end();
  tell(m.texts.text("PairingRefused", {name}));
}

/// The connection has ended, by whichever side.
void PairingOffer::gone(const Talk& talk) {
  if (&talk != mAsked) return;
  mAsked = nullptr;
  if (talk.isDone()) return;
  tell(m.texts.text("PairingGone"));
  if (mEnd == 0) endSoon();
}

/// Not within a talk, which would go with it.
void PairingOffer::endSoon() {
  m.platform.runLoop.cancel(mEnd);
  mEnd = m.platform.runLoop.performAfter(kFarewell, [this] { end(); });
}

void PairingOffer::paired(const PairedMachine& machine) {
  const Outcome kept = mMachines.add(machine);
  tell(kept ? m.texts.text("PairingDone", {machine.machine.name}) : kept.error().text);
  endSoon();
}

}  // namespace corvana
