// Values as others send them over the bus: whatever their types, what comes out can be sent again
// and means the same.

#include <QStringList>
#include <QVariant>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "platform/qt/BusConnection.h"

namespace {

using namespace corvana;

/// Bytes as decisions; 0 at the end.
struct Bytes {
  const std::uint8_t* data;
  std::size_t left;

  std::uint8_t byte() {
    if (left == 0) return 0;
    --left;
    return *data++;
  }
  template <class Number>
  Number number() {
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < sizeof(Number); ++i) bits = bits << 8 | byte();
    Number value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
  }
  QByteArray bytes() {
    QByteArray all;
    for (int length = byte() % 20; length > 0; --length) all.append(static_cast<char>(byte()));
    return all;
  }
  QString text() { return QString::fromUtf8(bytes()); }
};

QVariant variant(Bytes& from, int depth) {
  const std::uint8_t kind = from.byte() % 15;
  if (depth > 16 && kind >= 10) return {};
  switch (kind) {
    case 0:
      return QVariant::fromValue(from.byte() % 2 == 1);
    case 1:
      return QVariant::fromValue(from.number<uchar>());
    case 2:
      return QVariant::fromValue(from.number<short>());
    case 3:
      return QVariant::fromValue(from.number<ushort>());
    case 4:
      return QVariant::fromValue(from.number<int>());
    case 5:
      return QVariant::fromValue(from.number<uint>());
    case 6:
      return QVariant::fromValue(from.number<qlonglong>());
    case 7:
      return QVariant::fromValue(from.number<qulonglong>());
    case 8:
      return QVariant::fromValue(from.number<double>());
    case 9:
      return from.text();
    case 10:
      return from.bytes();
    case 11:
      return QVariant::fromValue(BusDate{from.number<double>()});
    case 12: {
      QVariantList list;
      for (int count = from.byte() % 6; count > 0; --count) list.append(variant(from, depth + 1));
      return list;
    }
    case 13: {
      QStringList list;
      for (int count = from.byte() % 6; count > 0; --count) list.append(from.text());
      return list;
    }
    default: {
      QVariantMap map;
      for (int count = from.byte() % 6; count > 0; --count) {
        const QString key = from.text();
        map.insert(key, variant(from, depth + 1));
      }
      return map;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  BusValues::registerTypes();
  Bytes from{data, size};
  const ZAN_Value value = BusValues::valueWithVariant(variant(from, 0));
  int dropped = 0;
  const ZAN_Value sent = ZAN_Value::dictionary({{"value", value}});
  const QVariantMap map = BusValues::mapWithDictionary(sent, dropped);
  const ZAN_Value heard = BusValues::valueWithVariant(map);
  int droppedAgain = 0;
  const ZAN_Value again =
      BusValues::valueWithVariant(BusValues::mapWithDictionary(heard, droppedAgain));
  if (droppedAgain != 0) std::abort();
  if (heard.isDictionary() != again.isDictionary() || heard.size() != again.size()) std::abort();
  return 0;
}
