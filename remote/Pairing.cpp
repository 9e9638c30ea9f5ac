#include "remote/Pairing.h"

#include <sodium.h>

#include <algorithm>
#include <cctype>
#include <utility>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "core/record/Records.h"
#include "remote/PublishedService.h"

namespace corvana {

void Frames::take(std::span<const std::byte> bytes) {
  mBytes.insert(mBytes.end(), bytes.begin(), bytes.end());
}

Result<std::optional<std::vector<std::byte>>> Frames::next() {
  using Message = std::optional<std::vector<std::byte>>;
  if (mBytes.size() < mLengthBytes) return Message();
  std::size_t size = 0;
  for (std::size_t i = 0; i < mLengthBytes; ++i)
    size = size << 8U | std::to_integer<std::size_t>(mBytes[i]);
  if (size > mMostBytes) return Error{ErrorKind::limit, "the other machine says too much"};
  if (mBytes.size() - mLengthBytes < size) return Message();
  const auto begin = mBytes.begin() + static_cast<std::ptrdiff_t>(mLengthBytes);
  const auto end = begin + static_cast<std::ptrdiff_t>(size);
  Message message(std::in_place, begin, end);
  mBytes.erase(mBytes.begin(), end);
  return message;
}

std::vector<std::byte> Frames::framed(std::size_t lengthBytes, std::span<const std::byte> message) {
  std::vector<std::byte> bytes;
  bytes.reserve(lengthBytes + message.size());
  for (std::size_t i = lengthBytes; i-- > 0;)
    bytes.push_back(static_cast<std::byte>(message.size() >> 8U * i & 0xFFU));
  bytes.insert(bytes.end(), message.begin(), message.end());
  return bytes;
}

namespace {

constexpr const char* kName = "Name";
constexpr const char* kIdentifier = "Identifier";
constexpr const char* kUser = "User";
constexpr const char* kToControl = "KeyToControl";
constexpr const char* kToBeControlled = "KeyToBeControlled";
constexpr const char* kPublic = "Public";
constexpr const char* kNonce = "Nonce";

constexpr std::size_t kMostBytesOfName = 63;
constexpr unsigned kDigits = 1'000'000;

unsigned char* raw(std::byte* bytes) { return reinterpret_cast<unsigned char*>(bytes); }
const unsigned char* raw(const std::byte* bytes) {
  return reinterpret_cast<const unsigned char*>(bytes);
}

template <typename Bytes>
Bytes digest(std::span<const std::byte> bytes) {
  Bytes result{};
  crypto_generichash(raw(result.data()), result.size(), raw(bytes.data()), bytes.size(), nullptr,
                     0);
  return result;
}

template <typename Bytes>
bool take(const ZAN_Value& value, Bytes& into) {
  if (value.bytes().size() != into.size()) return false;
  std::ranges::copy(value.bytes(), into.begin());
  return true;
}

ZAN_Value valueOf(const MachineIdentity& machine) {
  return ZAN_Value::dictionary(
      {{kName, machine.name}, {kIdentifier, machine.identifier}, {kUser, machine.user}});
}

/// Nothing unless it could be a sender.
std::optional<MachineIdentity> identityIn(const ZAN_Value& value) {
  MachineIdentity machine{
      std::string(
          beginningOfBytes(ZAN_StringUtils::oneLine(withReplacedBytes(value[kName].stringView())),
                           kMostBytesOfName)),
      value.string(kIdentifier), value.integer(kUser)};
  const bool isPlain =
      std::ranges::all_of(machine.identifier, [](unsigned char c) { return std::isalnum(c) != 0; });
  if (machine.name.empty() || machine.identifier.empty() || !isPlain ||
      machine.sender().size() > CommandProof::kMostBytesOfName)
    return std::nullopt;
  return machine;
}

}  // namespace

MachineIdentity MachineIdentity::of(const Machine& machine) {
  return {machine.networkName(), machine.machineIdentifier(), machine.userIdentifier()};
}

std::string MachineIdentity::sender() const { return identifier + "/" + std::to_string(user); }

std::vector<PairedMachine> PairedMachines::all() const {
  std::vector<PairedMachine> machines;
  const ZAN_Value list = mStore.files().readListFromFile(DataFolder::kPaired);
  for (const ZAN_Value& one : list.elements()) {
    const auto machine = identityIn(one);
    const auto toControl = ControlKey::from(one[kToControl].bytes());
    const auto toBeControlled = ControlKey::from(one[kToBeControlled].bytes());
    if (machine && toControl && toBeControlled)
      machines.push_back({*machine, *toControl, *toBeControlled});
  }
  return machines;
}

bool PairedMachines::haveChanged() {
  const auto now = mStore.files().identity(mStore.folder().pathOf(DataFolder::kPaired));
  const bool changed = !mSeen || *mSeen != now;
  mSeen = now;
  return changed;
}

template <typename Change>
Outcome PairedMachines::change(const Change& change) {
  const auto held = mStore.files().lock(DataFolder::kPaired);
  std::vector<PairedMachine> machines = all();
  change(machines);
  ZAN_Value list = ZAN_Value::array();
  for (const PairedMachine& one : machines) {
    ZAN_Value record = valueOf(one.machine);
    record.setValue(kToControl, ZAN_Value::data(one.toControl.bytes()));
    record.setValue(kToBeControlled, ZAN_Value::data(one.toBeControlled.bytes()));
    list.append(record);
  }
  auto attributes = DataFiles::dataFileAttributes();
  attributes.mode = 0600;
  return mStore.files().writeFileAtPath(
      mStore.folder().dataFolderPathWithFileName(DataFolder::kPaired), attributes,
      ZAN_Archiver::archivedDataWithRootObject(list));
}

Outcome PairedMachines::add(const PairedMachine& machine) {
  return change([&](std::vector<PairedMachine>& machines) {
    std::erase_if(machines, [&](const PairedMachine& one) {
      return one.machine.sender() == machine.machine.sender();
    });
    machines.push_back(machine);
  });
}

template <typename Change>
Result<bool> PairedMachines::changeOne(std::string_view name, const Change& changeIt) {
  const auto machines = all();
  // Its name is what it said of itself: it may be what another one is known by.
  const bool isSender = std::ranges::any_of(
      machines, [&](const PairedMachine& one) { return one.machine.sender() == name; });
  const auto isIt = [&](const PairedMachine& one) {
    if (isSender) return one.machine.sender() == name;
    return one.machine.name == name || one.machine.identifier == name;
  };
  const auto count = std::ranges::count_if(machines, isIt);
  if (count > 1)
    return Error{ErrorKind::refused,
                 "several paired machines are called so; take the identifier and the number of the "
                 "user, as in 5eed0123beef/501"};
  if (count == 0) return false;
  const Outcome saved = change([&](std::vector<PairedMachine>& all) {
    const auto place = std::ranges::find_if(all, isIt);
    if (place != all.end()) changeIt(all, place);
  });
  if (!saved) return saved.error();
  return true;
}

Result<bool> PairedMachines::forget(std::string_view name) {
  return changeOne(name, [](auto& all, auto place) { all.erase(place); });
}

Result<bool> PairedMachines::rename(std::string_view name, std::string_view newName) {
  const std::string shown(beginningOfBytes(ZAN_StringUtils::oneLine(newName), kMostBytesOfName));
  if (shown.empty()) return Error{ErrorKind::refused, "a name is needed"};
  return changeOne(name, [&](auto&, auto place) { place->machine.name = shown; });
}

Pairing::Pairing(Role role, MachineIdentity own)
    : mRole(role),
      mOwn(std::move(own)),
      mState(role == Role::asking ? State::answer : State::commitment) {
  // It only picks faster ways; all of them work without.
  [[maybe_unused]] const int picked = sodium_init();
  randombytes_buf(mSecret.data(), mSecret.size());
  randombytes_buf(mNonce.data(), mNonce.size());
  crypto_scalarmult_base(raw(mPublic.data()), raw(mSecret.data()));
  if (role == Role::asking) mCommitment = digest<Bytes>(opening());
}

std::vector<std::byte> Pairing::begin() const { return {mCommitment.begin(), mCommitment.end()}; }

std::vector<std::byte> Pairing::opening() const {
  ZAN_Value own = valueOf(mOwn);
  own.setValue(kPublic, ZAN_Value::data(mPublic));
  own.setValue(kNonce, ZAN_Value::data(mNonce));
  return ZAN_Archiver::archivedDataWithRootObject(own);
}

bool Pairing::open(std::span<const std::byte> message) {
  mOpened.assign(message.begin(), message.end());
  const auto value = ZAN_Unarchiver::unarchiveObjectWithData(message);
  Bytes nonce{};
  if (!value || !value->isDictionary() || !take((*value)[kNonce], nonce)) return false;
  const auto other = identityIn(*value);
  Bytes key{};
  // A machine that answers itself, or mirrors what it hears, is no other machine.
  if (!other || other->sender() == mOwn.sender() || !take((*value)[kPublic], key) || key == mPublic)
    return false;
  mOther = *other;
  Bytes product{};
  if (crypto_scalarmult(raw(product.data()), raw(mSecret.data()), raw(key.data())) != 0)
    return false;
  std::vector<std::byte> all(product.begin(), product.end());
  const auto own = opening();
  const auto& asking = mRole == Role::asking ? own : mOpened;
  const auto& accepting = mRole == Role::asking ? mOpened : own;
  // Both ends of all that was said, so that whoever changes any of it is noticed.
  for (const auto* part : {&asking, &accepting}) {
    const Bytes one = digest<Bytes>(*part);
    all.insert(all.end(), one.begin(), one.end());
  }
  mShared = digest<Bytes>(all);
  const Bytes shown = derived("digits");
  std::uint64_t number = 0;
  for (int i = 0; i < 8; ++i)
    number = number << 8U | std::to_integer<std::uint64_t>(shown[static_cast<std::size_t>(i)]);
  const std::string digits = std::to_string(number % kDigits);
  mDigits = std::string(6 - digits.size(), '0') + digits;
  return true;
}

Pairing::Bytes Pairing::derived(std::string_view purpose) const {
  Bytes result{};
  crypto_auth_hmacsha256(raw(result.data()), raw(std::as_bytes(std::span(purpose)).data()),
                         purpose.size(), raw(mShared.data()));
  return result;
}

Result<std::vector<std::byte>> Pairing::receive(std::span<const std::byte> message) {
  const Error wrong{ErrorKind::damaged,
                    "what the other machine says makes no sense; somebody may be in between"};
  switch (mState) {
    case State::commitment:
      if (message.size() != mCommitment.size()) return wrong;
      std::ranges::copy(message, mCommitment.begin());
      mState = State::opening;
      return opening();
    case State::answer:
      if (!open(message)) return wrong;
      mState = State::confirmation;
      return opening();
    case State::opening:
      if (digest<Bytes>(message) != mCommitment || !open(message)) return wrong;
      mState = State::confirmation;
      return std::vector<std::byte>();
    case State::confirmation: {
      const Bytes expected = derived(mRole == Role::asking ? "accepting yes" : "asking yes");
      if (message.size() != expected.size() ||
          sodium_memcmp(message.data(), expected.data(), expected.size()) != 0)
        return wrong;
      mState = State::done;
      return std::vector<std::byte>();
    }
    case State::done:
      break;
  }
  return wrong;
}

std::vector<std::byte> Pairing::confirm() {
  mConfirmed = true;
  const Bytes yes = derived(mRole == Role::asking ? "asking yes" : "accepting yes");
  return {yes.begin(), yes.end()};
}

std::optional<PairedMachine> Pairing::paired() const {
  if (mState != State::done || !mConfirmed) return std::nullopt;
  const bool asks = mRole == Role::asking;
  return PairedMachine{mOther,
                       *ControlKey::from(derived(asks ? "asking controls" : "accepting controls")),
                       *ControlKey::from(derived(asks ? "accepting controls" : "asking controls"))};
}

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
