// What a mail server may say: the input is its side of a session. A byte says how the client is set
// up, 0xff lets the server agree to TLS, 0xfe pauses, the rest is said.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "mail/smtp/SMTPConnector.h"
#include "mail/smtp/ZAN_SMTPClient.h"
#include "platform/simulated/SimulatedNetwork.h"
#include "platform/simulated/SimulatedRunLoop.h"

using namespace corvana;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const unsigned options = data[0];
  PeerScript script;
  std::string said;
  for (std::size_t i = 1; i < size; ++i) {
    if (data[i] < 0xfe) {
      said += static_cast<char>(data[i]);
      continue;
    }
    script.say(said);
    said.clear();
    data[i] == 0xff ? script.tls() : script.pause(7);
  }
  script.say(said).close();

  VirtualTime time(0);
  SimulatedClock clock(time);
  SimulatedNetwork network(time);
  network.script = [&](const std::string&, std::int64_t) { return script; };
  const auto client = ZAN_SMTPClient::clientWithServerAddress("m", "1,2", options % 3, "user",
                                                              "secret", (options >> 2U) % 4);
  if ((options & 0x10U) != 0) client->setCredentials("user", "secret");
  if ((options & 0x20U) != 0) {
    auto delegate = std::make_shared<SMTPClientDelegate>();
    delegate->reportError = [](const ZAN_SMTPClient&, const SMTPError&) {};
    client->setDelegate(delegate);
  }
  const SMTPCaller caller{"fuzz", 101500, {}};
  // A finished message goes by the other of the two dialogues.
  const auto connector =
      (options & 0x40U) != 0
          ? std::make_shared<SMTPConnector>(client, network, clock, caller,
                                            SMTPMessage{true,
                                                        "Subject: Hi\r\n\r\nHello\r\n",
                                                        {},
                                                        {"a@b.c", {}},
                                                        {{"d@e.f", {}}, {"g@h.i", {}}}})
          : client->connectorForMessage(network, clock, caller, "Hello", "Hi", "a@b.c",
                                        "d@e.f, Name <g@h.i>", 1);
  connector->start();
  // Whatever is said, each port is tried once at most, and the session ends.
  if (network.transcripts.size() > 2 || time.monotonic() > 1000 + 2 * 3600) std::abort();
  // A server that says 250 where it has to ask for the message has taken it: that is the dialogue.
  if (connector->success() && network.transcript().find("DATA\r\n") == std::string::npos)
    std::abort();
  return 0;
}
