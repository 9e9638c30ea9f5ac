#pragma once

#include <algorithm>
#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "ZANCocoaFramework/ZAN_IPAddress.h"

namespace corvana {

class ZAN_Value;

/// The machines that may connect, by address ("192.168.1.7", "fe80::1") or network
/// ("192.168.1.0/24", "fd00::/8"). Thread: main.
class AllowedAddresses {
 public:
  /// Anybody.
  AllowedAddresses() = default;
  /// A text with blanks or commas between the addresses, or an array of such texts; anybody when
  /// there is none.
  explicit AllowedAddresses(const ZAN_Value& preference);

  bool allows(std::string_view address) const;
  /// What could not be read as an address; it allows nobody.
  const std::vector<std::string>& wrong() const { return mWrong; }

 private:
  struct Network {
    ZAN_IPAddress address;
    unsigned bits;
  };
  void add(std::string_view text);

  bool mRestricts = false;
  std::vector<Network> mNetworks;
  std::vector<std::string> mWrong;
};

/// Lets things happen as long as they do not come too quickly: so many at once, and one more every
/// so many seconds. Thread: main.
class Allowance {
 public:
  constexpr Allowance(int atOnce, double seconds)
      : mMost(atOnce), mSeconds(seconds), mLeft(atOnce) {}

  /// Whether one may happen at that monotonic time, and then counts it. One that counts for several
  /// may happen as soon as one may, and keeps the next waiting for as many.
  bool take(double now, double count = 1) {
    mLeft += (now - mLast) / mSeconds;
    if (mLeft > mMost) mLeft = mMost;
    mLast = now;
    if (mLeft < 1) return false;
    mLeft -= count;
    return true;
  }

 private:
  double mMost;
  double mSeconds;
  double mLeft;
  double mLast = 0;
};

/// An allowance for each of those who ask, and one for all strangers together, so that nobody uses
/// up what is another's. Who has earned trust does not share with the strangers. Thread: main.
class Allowances {
 public:
  /// `each` is what everybody begins with; `strangers` bounds those that are not trusted.
  Allowances(const Allowance& each, const Allowance& strangers)
      : mEach(each), mStrangers(strangers) {}

  bool take(const std::string& who, double now) {
    auto place = mKnown.find(who);
    if (place == mKnown.end()) {
      if (mKnown.size() >= kMost) forgetOne();
      place = mKnown.emplace(who, Entry{mEach, now, false}).first;
    }
    place->second.last = now;
    return place->second.allowance.take(now) && (place->second.trusted || mStrangers.take(now));
  }
  void trust(const std::string& who) {
    const auto place = mKnown.find(who);
    if (place != mKnown.end()) place->second.trusted = true;
  }

 private:
  static constexpr std::size_t kMost = 1000;
  struct Entry {
    Allowance allowance;
    double last;  ///< monotonic time
    bool trusted;
  };

  /// The stranger that has been silent for longest; a trusted one only when there is no other.
  void forgetOne() {
    mKnown.erase(std::ranges::min_element(mKnown, [](const auto& one, const auto& other) {
      return std::pair(one.second.trusted, one.second.last) <
             std::pair(other.second.trusted, other.second.last);
    }));
  }

  Allowance mEach;
  Allowance mStrangers;
  std::map<std::string, Entry> mKnown;
};

}  // namespace corvana
