#include "platform/simulated/SimulatedServiceDiscovery.h"

#include <utility>

namespace corvana {

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
