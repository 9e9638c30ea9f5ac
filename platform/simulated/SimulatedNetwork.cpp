#include "platform/simulated/SimulatedNetwork.h"

#include <algorithm>
#include <utility>

#include "platform/simulated/VirtualTime.h"

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

}  // namespace corvana
