#include "platform/qt/BusConnection.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <map>
#include <utility>

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <QMetaType>
#include <QObject>

#include "platform/linux/Spawn.h"

namespace corvana {

namespace {

constexpr double kFirstRetry = 1;
constexpr double kLastRetry = 300;

}  // namespace

class BusConnection::Private final : public QObject {
  Q_OBJECT

 public:
  Private(RunLoop& runLoop, SystemLog& log, Address address, std::string absence)
      : mRunLoop(runLoop), mLog(log), mAddress(std::move(address)), mAbsence(std::move(absence)) {
    connectToBus();
  }

  ~Private() override {
    mRunLoop.cancel(mRetry);
    leaveBus();
  }

  void connectToBus() {
    mRetry = 0;
    leaveBus();
    const std::string address = mAddress();
    if (!address.empty()) {
      // A name used again would hand back the connection that was lost.
      mName = QStringLiteral("corvana9-%1-%2")
                  .arg(reinterpret_cast<quintptr>(this))
                  .arg(++mConnections);
      if (const auto made = connectTo(address, mName))
        mBus = *made;
      else
        mName.clear();
    }
    if (!mBus.isConnected()) {
      if (!std::exchange(mToldAbsence, true)) {
        mLog.write(mAbsence);
      }
      retryLater();
      return;
    }
    mWait = kFirstRetry;
    mToldAbsence = false;
    mBus.connect({}, QStringLiteral("/org/freedesktop/DBus/Local"),
                 QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), this,
                 SLOT(lost()));
    for (const auto& [owner, body] : mConnected) body();
  }

  void leaveBus() {
    if (mName.isEmpty()) return;
    mBus = QDBusConnection(QString());
    QDBusConnection::disconnectFromBus(std::exchange(mName, {}));
  }

  void retryLater() {
    if (mRetry != 0) return;
    mRetry = mRunLoop.performAfter(mWait, [this] { connectToBus(); });
    mWait = std::min(mWait * 2, kLastRetry);
  }

 public Q_SLOTS:
  void lost() { retryLater(); }

 public:
  RunLoop& mRunLoop;
  SystemLog& mLog;
  Address mAddress;
  std::string mAbsence;
  QDBusConnection mBus{QString()};
  QString mName;
  int mConnections = 0;
  RunLoop::TimerId mRetry = 0;
  double mWait = kFirstRetry;
  bool mToldAbsence = false;
  std::map<const void*, std::function<void()>> mConnected;
};

BusConnection::BusConnection(RunLoop& runLoop, SystemLog& log, Address address, std::string absence)
    : mPrivate(std::make_unique<Private>(runLoop, log, std::move(address), std::move(absence))) {}

BusConnection::~BusConnection() = default;

bool BusConnection::isConnected() const { return mPrivate->mBus.isConnected(); }

QDBusConnection& BusConnection::bus() { return mPrivate->mBus; }

void BusConnection::whenConnected(const void* owner, std::function<void()> body) {
  const auto& kept = mPrivate->mConnected.insert_or_assign(owner, std::move(body)).first->second;
  if (isConnected()) kept();
}

void BusConnection::forget(const void* owner) { mPrivate->mConnected.erase(owner); }

std::optional<QDBusConnection> BusConnection::connectTo(const std::string& address,
                                                        const QString& name) {
  if (!ExpendableChild::runDetached([] {})) return std::nullopt;
  return QDBusConnection::connectToBus(QString::fromStdString(address), name);
}

std::string BusConnection::sessionBusAddress() {
  const char* said = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  if (said != nullptr && *said != '\0') return said;
  const char* folder = std::getenv("XDG_RUNTIME_DIR");
  if (folder == nullptr || *folder != '/') return {};
  const std::string socket = std::string(folder) + "/bus";
  return access(socket.c_str(), F_OK) == 0 ? "unix:path=" + socket : std::string();
}

std::string BusConnection::systemBusAddress() {
  const char* said = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
  if (said != nullptr && *said != '\0') return said;
  const char* socket = "/run/dbus/system_bus_socket";
  return access(socket, F_OK) == 0 ? std::string("unix:path=") + socket : std::string();
}

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

#include "BusConnection.moc"
