#pragma once

#include <QVariant>
#include <QVariantMap>

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// A date on the bus: a structure of one double, seconds since 2001.
struct BusDate {
  double seconds = 0;
};

/// Values in the types of the bus and back: text s, letter c with 0 or 1 b, other integers x (t
/// above its range), reals d, data ay, dates (d), lists av, dictionaries a{sv}. Thread: any.
class BusValues {
 public:
  BusValues() = delete;

  /// What has no form on the bus (null, sets, index sets, objects, texts with a NUL, keys that are
  /// no texts, nesting of more than 12 levels) is left out and counted in `dropped`.
  static QVariantMap mapWithDictionary(const ZAN_Value& dictionary, int& dropped);
  /// Takes every integer type, lists of texts and dictionaries of texts too; null for what is not
  /// understood.
  static ZAN_Value valueWithVariant(const QVariant& variant);

  /// To be called once before a message with a date is sent or read.
  static void registerTypes();
};

}  // namespace corvana

Q_DECLARE_METATYPE(corvana::BusDate)
