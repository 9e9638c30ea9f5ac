#include "platform/simulated/SimulatedNetwork.h"

#include <algorithm>

#include "platform/simulated/SimulatedRunLoop.h"

namespace corvana {

namespace {

class SimulatedStream final : public StreamConnection {
 public:
  SimulatedStream(VirtualTime& time, PeerScript script, std::size_t space,
                  std::shared_ptr<std::string> transcript)
      : mTime(time),
        mScript(std::move(script)),
        mSpace(space),
        mTranscript(std::move(transcript)) {}

  Event wait(double seconds, bool wantsSpace) override {
    const double end = mTime.monotonic() + seconds;
    for (;;) {
      if (const Event event = next(wantsSpace); event != Event::nothing) return event;
      const double now = mTime.monotonic();
      if (now >= end) return Event::nothing;
      mTime.sleep(std::max(std::min(mPauseEnd > now ? mPauseEnd : end, end) - now, 1e-9));
    }
  }

  std::string read(std::size_t limit) override {
    std::string bytes = mIncoming.substr(0, limit);
    mIncoming.erase(0, bytes.size());
    return bytes;
  }

  Result<std::size_t> send(std::string_view bytes) override {
    if (!mFailure.empty()) return Error{ErrorKind::unavailable, mFailure};
    const std::size_t taken = std::min(bytes.size(), mSpace - std::min(mSpace, mHeard.size()));
    mHeard.append(bytes.substr(0, taken));
    mTranscript->append(bytes.substr(0, taken));
    return taken;
  }

  void startTLS(const std::string& peerName) override {
    mIncoming.clear();
    mTranscript->append("<tls " + peerName + ">");
    mWantsTls = true;
  }

  std::string failure() const override { return mFailure; }
  bool isCertificateRefused() const override { return mIsRefused; }

 private:
  Event next(bool wantsSpace) {
    for (;;) {
      if (!mFailure.empty()) return Event::failed;
      const bool more = perform();
      if (!mFailure.empty()) return Event::failed;
      if (!mOpened && mPauseEnd <= mTime.monotonic()) {
        mOpened = true;
        return Event::opened;
      }
      if (!mOpened) return Event::nothing;
      if (std::exchange(mSecuredNow, false)) return Event::secured;
      if (!mIncoming.empty()) return Event::received;
      if (mClosed) return Event::ended;
      if (wantsSpace && mHeard.size() < mSpace) return Event::space;
      if (!more) return Event::nothing;
    }
  }

  /// Whether a step was taken.
  bool perform() {
    const auto& steps = mScript.steps();
    if (mPauseEnd > mTime.monotonic()) return false;
    if (mAt == steps.size() && mScript.isForever()) mAt = 0;
    if (mAt == steps.size()) return false;
    const PeerStep& step = steps[mAt];
    // Nothing is said before the stream is open.
    if (!mOpened && step.kind != PeerStep::Kind::fail && step.kind != PeerStep::Kind::pause)
      return false;
    switch (step.kind) {
      case PeerStep::Kind::pause:
        mPauseEnd = mTime.monotonic() + step.seconds;
        break;
      case PeerStep::Kind::say:
        mIncoming += step.text;
        break;
      case PeerStep::Kind::hear: {
        const std::size_t found = mHeard.find(step.text);
        if (found == std::string::npos) {
          // It goes on listening for the rest.
          const std::size_t keep = std::min(mHeard.size(), step.text.size());
          mHeard.erase(0, mHeard.size() - keep);
          return false;
        }
        mHeard.erase(0, found + step.text.size());
        break;
      }
      case PeerStep::Kind::tls:
        if (!mWantsTls) return false;
        mFailure = step.text;
        mSecuredNow = step.text.empty();
        mIsRefused = !mSecuredNow;
        break;
      case PeerStep::Kind::close:
        mClosed = true;
        break;
      case PeerStep::Kind::fail:
        mFailure = step.text;
        break;
    }
    ++mAt;
    return true;
  }

  VirtualTime& mTime;
  const PeerScript mScript;
  const std::size_t mSpace;
  std::shared_ptr<std::string> mTranscript;
  std::size_t mAt = 0;
  double mPauseEnd = 0;
  bool mOpened = false;
  bool mWantsTls = false;
  bool mSecuredNow = false;
  bool mIsRefused = false;
  bool mClosed = false;
  std::string mIncoming;
  std::string mHeard;
  std::string mFailure;
};

}  // namespace

std::unique_ptr<StreamConnection> SimulatedNetwork::connect(const std::string& host,
                                                            std::int64_t port, Family) {
  auto transcript =
      std::make_shared<std::string>("<connect " + host + ":" + std::to_string(port) + ">");
  transcripts.push_back(transcript);
  PeerScript answers;
  if (script)
    answers = script(host, port);
  else
    answers.fail("Connection refused");
  return std::make_unique<SimulatedStream>(mTime, std::move(answers), space, std::move(transcript));
}

std::string SimulatedNetwork::transcript() const {
  std::string all;
  for (const auto& one : transcripts) all += *one;
  return all;
}

class SimulatedServerSockets::Socket final : public ServerSocket {
 public:
  explicit Socket(std::shared_ptr<Listener> listener) : mListener(std::move(listener)) {}
  std::uint16_t port() const override { return mListener->port; }

 private:
  std::shared_ptr<Listener> mListener;
};

Result<std::unique_ptr<ServerSocket>> SimulatedServerSockets::listen(std::uint16_t port,
                                                                     const Limits& limits,
                                                                     Events events) {
  return listen({port, limits, std::move(events), {}});
}

Result<std::unique_ptr<ServerSocket>> SimulatedServerSockets::listenForVisits(std::uint16_t port,
                                                                              const VisitLimits&,
                                                                              Comes comes) {
  return listen({port, {}, {}, std::move(comes)});
}

Result<std::unique_ptr<ServerSocket>> SimulatedServerSockets::listen(Listener made) {
  if (failure) return Error{*failure, "listening socket: the test says so"};
  if (made.port == 0) made.port = ++mLastPort;
  auto listener = std::make_shared<Listener>(std::move(made));
  mListeners.push_back(listener);
  return std::unique_ptr<ServerSocket>(std::make_unique<Socket>(std::move(listener)));
}

namespace {

struct Talk final : Visitor {
  std::string from;
  std::unique_ptr<Visit> visit;
  std::vector<std::byte> said;
  bool isOver = false;

  const std::string& address() const override { return from; }
  void say(std::span<const std::byte> bytes) override {
    said.insert(said.end(), bytes.begin(), bytes.end());
  }
  void leave() override { isOver = true; }
};

class Call final : public SimulatedServerSockets::Caller {
 public:
  Call(RunLoop& runLoop, std::shared_ptr<Talk> talk) : mRunLoop(runLoop), mTalk(std::move(talk)) {}

  void say(std::span<const std::byte> bytes) override {
    mRunLoop.performOnMain([weak = std::weak_ptr<Talk>(mTalk),
                            kept = std::vector<std::byte>(bytes.begin(), bytes.end())] {
      const auto talk = weak.lock();
      if (talk && !talk->isOver) talk->visit->heard(kept);
    });
  }
  std::vector<std::byte> heard() override { return std::exchange(mTalk->said, {}); }
  bool isOver() const override { return mTalk->isOver; }

 private:
  RunLoop& mRunLoop;
  std::shared_ptr<Talk> mTalk;
};

}  // namespace

std::unique_ptr<SimulatedServerSockets::Caller> SimulatedServerSockets::call(
    std::uint16_t port, const std::string& address) {
  for (const auto& one : mListeners) {
    const auto listener = one.lock();
    if (!listener || listener->port != port || !listener->comes) continue;
    auto talk = std::make_shared<Talk>();
    talk->from = address;
    talk->visit = listener->comes(*talk);
    if (!talk->visit) return nullptr;
    return std::make_unique<Call>(mRunLoop, std::move(talk));
  }
  return nullptr;
}

bool SimulatedServerSockets::send(std::uint16_t port, const std::string& address,
                                  std::span<const std::byte> bytes) {
  for (const auto& one : mListeners) {
    const auto listener = one.lock();
    if (!listener || listener->port != port || listener->comes) continue;
    if (listener->events.accepts && !listener->events.accepts(address)) return false;
    const auto read = bytes.first(std::min(bytes.size(), listener->limits.bytes));
    std::vector<std::byte> kept(read.begin(), read.end());
    mRunLoop.performOnMain([this, one, address, kept = std::move(kept)] {
      const auto still = one.lock();
      if (still && !kept.empty()) replies.push_back(still->events.received(address, kept));
    });
    return true;
  }
  return false;
}

std::vector<std::uint16_t> SimulatedServerSockets::ports() const {
  std::vector<std::uint16_t> ports;
  for (const auto& one : mListeners)
    if (const auto listener = one.lock(); listener && !listener->comes)
      ports.push_back(listener->port);
  return ports;
}

class SimulatedServiceDiscovery::Publication final : public ServicePublication {
 public:
  Publication(SimulatedServiceDiscovery& network, std::shared_ptr<Entry> entry)
      : mNetwork(network), mEntry(std::move(entry)) {}

  void setTxt(const std::vector<std::string>& txt) override {
    mEntry->service.txt = txt;
    mNetwork.laterTexts.push_back(txt);
  }

 private:
  SimulatedServiceDiscovery& mNetwork;
  std::shared_ptr<Entry> mEntry;
};

class SimulatedServiceDiscovery::Browsing final : public ServiceBrowsing {
 public:
  explicit Browsing(BrowsingEvents events)
      : mEvents(std::make_shared<BrowsingEvents>(std::move(events))) {}
  std::weak_ptr<BrowsingEvents> events() const { return mEvents; }

 private:
  std::shared_ptr<BrowsingEvents> mEvents;
};

std::unique_ptr<ServicePublication> SimulatedServiceDiscovery::publish(
    const ServiceDescription& service, PublicationEvents events) {
  auto entry = std::make_shared<Entry>(Entry{service, std::move(events)});
  mEntries.push_back(entry);
  mRunLoop.performOnMain([this, weak = std::weak_ptr<Entry>(entry)] { tryToPublish(weak); });
  return std::make_unique<Publication>(*this, std::move(entry));
}

void SimulatedServiceDiscovery::tryToPublish(const std::weak_ptr<Entry>& weak) {
  const auto entry = weak.lock();
  if (!entry) return;
  if (failure != 0) {
    entry->events.failed(failure, "the test says so");
    return;
  }
  while (taken.contains(entry->service.name)) {
    entry->service.name = entry->events.renamed(entry->service.name);
    if (entry->service.name.empty()) return;
  }
  entry->known = true;
  entry->events.published(entry->service.name);
}

std::unique_ptr<ServiceBrowsing> SimulatedServiceDiscovery::browse(const std::string&,
                                                                   const std::string&,
                                                                   BrowsingEvents events) {
  auto browsing = std::make_unique<Browsing>(std::move(events));
  mRunLoop.performOnMain([this, weak = browsing->events()] {
    const auto listening = weak.lock();
    if (!listening) return;
    for (const FoundService& one : neighbours) listening->found(one);
    for (const ServiceDescription& one : published())
      listening->found({one.name, "localhost", "127.0.0.1", one.port, one.txt});
    listening->settled();
  });
  return browsing;
}

std::vector<ServiceDescription> SimulatedServiceDiscovery::published() const {
  std::vector<ServiceDescription> services;
  for (const auto& one : mEntries) {
    const auto entry = one.lock();
    if (entry && entry->known) services.push_back(entry->service);
  }
  return services;
}

}  // namespace corvana
