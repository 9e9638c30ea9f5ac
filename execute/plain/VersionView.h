#pragma once

#include <functional>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "execute/engine/VersionTree.h"
#include "execute/plain/Versions.h"

namespace corvana {

/// One version of an action's copies as it was: what lies in its folder and in those of all newer
/// ones, laid over the copies. Thread: one.
class VersionView final : public VersionTree {
 public:
  /// `chain`: the versions of the action that lie in `versions`, oldest first; `index` is the one
  /// that is wanted.
  static Result<VersionView> open(const HeldFolder& destination, const HeldFolder& versions,
                                  const std::vector<VersionFolder>& chain, std::size_t index);

  const VersionHeader& header() const { return mHeader; }

  /// What lay under one name in each version of the chain, Kind::none where nothing did.
  static Result<std::vector<VersionItem>> statesOf(const HeldFolder& destination,
                                                   const HeldFolder& versions,
                                                   const std::vector<VersionFolder>& chain,
                                                   const std::string& name);

  using VersionTree::forEach;
  Outcome forEach(const std::string& name, const std::function<bool(const Entry&)>& each,
                  const std::function<void(const std::string&)>& unreadable) const override;

 private:
  VersionView(HeldFolder destination, VersionHeader header)
      : mDestination(std::move(destination)), mHeader(std::move(header)) {}
  bool isOfVersion(const std::string& name) const;

  HeldFolder mDestination;
  VersionHeader mHeader;
  std::vector<HeldFolder> mLayers;  ///< of the version and the newer ones, oldest first
};

}  // namespace corvana
