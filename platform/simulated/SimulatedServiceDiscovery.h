#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/RunLoop.h"
#include "platform/ServiceDiscovery.h"

namespace corvana {

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
