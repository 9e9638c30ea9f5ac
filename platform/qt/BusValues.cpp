#include "platform/qt/BusValues.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <QMetaType>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace corvana {

namespace {

// A message may nest 32 arrays and 64 containers in all; each of our levels takes up to three.
constexpr int kDeepest = 12;

std::optional<QString> textOf(const ZAN_Value& value) {
  const std::string_view text = value.stringView();
  if (!value.isString() || text.find('\0') != std::string_view::npos) return std::nullopt;
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

QVariant numberOf(const ZAN_Value& value) {
  if (value.isReal()) return value.doubleValue();
  const std::int64_t integer = value.integerValue();
  if (value.letter() == 'c' && (integer == 0 || integer == 1)) return integer == 1;
  const std::uint64_t wide = value.unsignedValue();
  constexpr auto kMost = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  if (value.letter() == 'Q' && wide > kMost) return static_cast<qulonglong>(wide);
  return static_cast<qlonglong>(integer);
}

std::optional<QVariant> variantOf(const ZAN_Value& value, int depth, int& dropped);

QVariantMap mapOf(const ZAN_Value& dictionary, int depth, int& dropped) {
  QVariantMap map;
  for (const ZAN_Value::Entry& entry : dictionary.entries()) {
    const auto key = textOf(entry.key);
    const auto value = key ? variantOf(entry.value, depth, dropped) : std::nullopt;
    if (!key) ++dropped;
    if (value) map.insert(*key, *value);
  }
  return map;
}

std::optional<QVariant> variantOf(const ZAN_Value& value, int depth, int& dropped) {
  if (depth > kDeepest) {
    ++dropped;
    return std::nullopt;
  }
  switch (value.kind()) {
    case ZAN_Value::Kind::number:
      return numberOf(value);
    case ZAN_Value::Kind::string:
      if (const auto text = textOf(value)) return *text;
      break;
    case ZAN_Value::Kind::data: {
      const auto bytes = value.bytes();
      return QByteArray(reinterpret_cast<const char*>(bytes.data()),
                        static_cast<qsizetype>(bytes.size()));
    }
    case ZAN_Value::Kind::date:
      return QVariant::fromValue(BusDate{value.asDate().value_or(0)});
    case ZAN_Value::Kind::array: {
      QVariantList list;
      for (const ZAN_Value& element : value.elements()) {
        if (const auto one = variantOf(element, depth + 1, dropped)) list.append(*one);
      }
      return list;
    }
    case ZAN_Value::Kind::dictionary:
      return mapOf(value, depth + 1, dropped);
    default:
      break;
  }
  ++dropped;
  return std::nullopt;
}

ZAN_Value valueOfText(const QString& text) { return ZAN_Value(text.toStdString()); }

void setEntry(ZAN_Value& dictionary, const QString& key, ZAN_Value value) {
  if (!value.isNull()) dictionary.setValue(key.toStdString(), std::move(value));
}

ZAN_Value valueOfArgument(const QDBusArgument& argument) {
  switch (argument.currentType()) {
    case QDBusArgument::MapType: {
      ZAN_Value dictionary = ZAN_Value::dictionary();
      const bool textKeys = argument.currentSignature().startsWith("a{s");
      argument.beginMap();
      while (!argument.atEnd()) {
        argument.beginMapEntry();
        const QVariant key = argument.asVariant();
        ZAN_Value value = BusValues::valueWithVariant(argument.asVariant());
        argument.endMapEntry();
        if (textKeys) setEntry(dictionary, key.toString(), std::move(value));
      }
      argument.endMap();
      return dictionary;
    }
    case QDBusArgument::ArrayType: {
      std::vector<ZAN_Value> elements;
      argument.beginArray();
      while (!argument.atEnd()) {
        ZAN_Value one = BusValues::valueWithVariant(argument.asVariant());
        if (!one.isNull()) elements.push_back(std::move(one));
      }
      argument.endArray();
      return ZAN_Value::array(std::move(elements));
    }
    case QDBusArgument::StructureType:
      if (argument.currentSignature() == "(d)") {
        BusDate date;
        argument.beginStructure();
        argument >> date.seconds;
        argument.endStructure();
        return ZAN_Value::date(date.seconds);
      }
      return {};
    case QDBusArgument::BasicType:
    case QDBusArgument::VariantType:
      return BusValues::valueWithVariant(argument.asVariant());
    default:
      return {};
  }
}

}  // namespace

QDBusArgument& operator<<(QDBusArgument& argument, const BusDate& date) {
  argument.beginStructure();
  argument << date.seconds;
  argument.endStructure();
  return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, BusDate& date) {
  argument.beginStructure();
  argument >> date.seconds;
  argument.endStructure();
  return argument;
}

void BusValues::registerTypes() { qDBusRegisterMetaType<BusDate>(); }

QVariantMap BusValues::mapWithDictionary(const ZAN_Value& dictionary, int& dropped) {
  return mapOf(dictionary, 1, dropped);
}

ZAN_Value BusValues::valueWithVariant(const QVariant& variant) {
  switch (variant.typeId()) {
    case QMetaType::Bool:
      return {variant.toBool()};
    case QMetaType::UChar:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Int:
      return {variant.toInt()};
    case QMetaType::UInt:
    case QMetaType::LongLong:
      return {static_cast<long long>(variant.toLongLong())};
    case QMetaType::ULongLong:
      return {static_cast<unsigned long long>(variant.toULongLong())};
    case QMetaType::Double:
      return {variant.toDouble()};
    case QMetaType::QString:
      return valueOfText(variant.toString());
    case QMetaType::QByteArray: {
      const QByteArray bytes = variant.toByteArray();
      return ZAN_Value::data(
          std::string_view(bytes.constData(), static_cast<std::size_t>(bytes.size())));
    }
    case QMetaType::QStringList: {
      std::vector<ZAN_Value> elements;
      for (const QString& one : variant.toStringList()) elements.push_back(valueOfText(one));
      return ZAN_Value::array(std::move(elements));
    }
    case QMetaType::QVariantList: {
      std::vector<ZAN_Value> elements;
      for (const QVariant& one : variant.toList()) {
        ZAN_Value value = valueWithVariant(one);
        if (!value.isNull()) elements.push_back(std::move(value));
      }
      return ZAN_Value::array(std::move(elements));
    }
    case QMetaType::QVariantMap: {
      ZAN_Value dictionary = ZAN_Value::dictionary();
      const QVariantMap map = variant.toMap();
      for (auto one = map.begin(); one != map.end(); ++one) {
        setEntry(dictionary, one.key(), valueWithVariant(one.value()));
      }
      return dictionary;
    }
    default:
      break;
  }
  if (variant.typeId() == qMetaTypeId<QDBusVariant>()) {
    return valueWithVariant(variant.value<QDBusVariant>().variant());
  }
  if (variant.typeId() == qMetaTypeId<QDBusArgument>()) {
    return valueOfArgument(variant.value<QDBusArgument>());
  }
  if (variant.typeId() == qMetaTypeId<BusDate>()) {
    return ZAN_Value::date(variant.value<BusDate>().seconds);
  }
  return {};
}

}  // namespace corvana
