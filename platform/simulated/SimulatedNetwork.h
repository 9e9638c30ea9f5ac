#pragma once

#include <optional>
#include <set>

#include "platform/Network.h"
#include "platform/RunLoop.h"

namespace corvana {

class VirtualTime;

/// One thing that the other end of a simulated stream does.
struct PeerStep {
  enum class Kind { pause, say, hear, tls, close, fail };
  Kind kind;
  std::string text;
  double seconds = 0;
};

/// What the other end does, in order, in virtual time; after the last step it is silent. A stream
/// opens at once unless the script begins with `fail` or a pause.
class PeerScript {
 public:
  PeerScript& pause(double seconds) { return add(PeerStep::Kind::pause, {}, seconds); }
  PeerScript& say(const std::string& bytes) { return add(PeerStep::Kind::say, bytes, 0); }
  /// Says a line.
  PeerScript& line(const std::string& text) { return say(text + "\r\n"); }
  /// Waits until the text was sent to it, and takes everything up to its end.
  PeerScript& hear(const std::string& text) { return add(PeerStep::Kind::hear, text, 0); }
  /// Waits until the stream goes on encrypted, and agrees, or shows a certificate that is refused
  /// for that reason.
  PeerScript& tls(const std::string& refusal = {}) { return add(PeerStep::Kind::tls, refusal, 0); }
  PeerScript& close() { return add(PeerStep::Kind::close, {}, 0); }
  PeerScript& fail(const std::string& reason) { return add(PeerStep::Kind::fail, reason, 0); }
  /// Does the steps so far again and again, without end.
  PeerScript& endlessly() {
    mForever = true;
    return *this;
  }

  const std::vector<PeerStep>& steps() const { return mSteps; }
  bool isForever() const { return mForever; }

 private:
  PeerScript& add(PeerStep::Kind kind, const std::string& text, double seconds) {
    mSteps.push_back({kind, text, seconds});
    return *this;
  }
  std::vector<PeerStep> mSteps;
  bool mForever = false;
};

/// Machines elsewhere, as a test makes them up.
class SimulatedNetwork final : public Network {
 public:
  explicit SimulatedNetwork(VirtualTime& time) : mTime(time) {}

  bool resolves(const std::string& host) override { return !unknownHosts.contains(host); }
  std::unique_ptr<StreamConnection> connect(const std::string& host, std::int64_t port,
                                            Family family) override;

  /// Who answers; without it every connection is refused.
  std::function<PeerScript(const std::string& host, std::int64_t port)> script;
  std::set<std::string> unknownHosts;
  /// How many bytes a stream takes before the other end has to hear them.
  std::size_t space = 1 << 20;

  /// What was sent on each stream, in order of their beginning: "<connect HOST:PORT>", the bytes,
  /// and "<tls NAME>" where it went on encrypted.
  std::vector<std::shared_ptr<std::string>> transcripts;
  std::string transcript() const;  ///< all of them

 private:
  VirtualTime& mTime;
};

/// Sockets that only the test connects to; ports that are not asked for are numbered from 4001 on.
class SimulatedServerSockets final : public ServerSockets {
 public:
  explicit SimulatedServerSockets(RunLoop& runLoop) : mRunLoop(runLoop) {}

  Result<std::unique_ptr<ServerSocket>> listen(std::uint16_t port, const Limits& limits,
                                               Events events) override;
  Result<std::unique_ptr<ServerSocket>> listenForVisits(std::uint16_t port,
                                                        const VisitLimits& limits,
                                                        Comes comes) override;

  /// A machine that has connected, as the test plays it.
  class Caller {
   public:
    virtual ~Caller() = default;
    /// Heard when the loop next runs.
    virtual void say(std::span<const std::byte> bytes) = 0;
    /// What was said to it since the last call.
    virtual std::vector<std::byte> heard() = 0;
    /// The other end has left.
    virtual bool isOver() const = 0;
  };
  /// Connects to that port; null when nobody listens there or it is turned away. The visit is over
  /// when the caller goes.
  std::unique_ptr<Caller> call(std::uint16_t port, const std::string& address);

  /// A machine connects to that port and sends, cut as one reading is; it is heard when the loop
  /// next runs. False when nobody listens there or the address is turned away.
  bool send(std::uint16_t port, const std::string& address, std::span<const std::byte> bytes);

  /// What was answered, to all who sent, in order.
  std::vector<std::vector<std::byte>> replies;
  std::optional<ErrorKind> failure;  ///< why `listen` fails
  /// Those that listen now for single commands, in the order of their beginning.
  std::vector<std::uint16_t> ports() const;

 private:
  struct Listener {
    std::uint16_t port;
    Limits limits;
    Events events;
    Comes comes;  ///< with it, visitors
  };
  class Socket;
  Result<std::unique_ptr<ServerSocket>> listen(Listener listener);

  RunLoop& mRunLoop;
  std::uint16_t mLastPort = 4000;
  std::vector<std::weak_ptr<Listener>> mListeners;
};

/// A local network made up by the test: it sees what is published, and can take names before.
/// Events come when the loop next runs.
class SimulatedServiceDiscovery final : public ServiceDiscovery {
 public:
  explicit SimulatedServiceDiscovery(RunLoop& runLoop) : mRunLoop(runLoop) {}

  bool isAway() const override { return away; }
  std::unique_ptr<ServicePublication> publish(const ServiceDescription& service,
                                              PublicationEvents events) override;
  std::unique_ptr<ServiceBrowsing> browse(const std::string& type, const std::string& domain,
                                          BrowsingEvents events) override;

  /// What is known now, in the order of publication.
  std::vector<ServiceDescription> published() const;
  /// Every text that a service was given after its publication, in order.
  std::vector<std::vector<std::string>> laterTexts;

  std::set<std::string> taken;           ///< names that others have
  std::vector<FoundService> neighbours;  ///< what a search finds beside what is published here
  bool away = false;
  int failure = 0;  ///< otherwise publishing fails with that code

 private:
  struct Entry {
    ServiceDescription service;
    PublicationEvents events;
    bool known = false;
  };
  class Publication;
  class Browsing;

  void tryToPublish(const std::weak_ptr<Entry>& entry);

  RunLoop& mRunLoop;
  std::vector<std::weak_ptr<Entry>> mEntries;
};

}  // namespace corvana
