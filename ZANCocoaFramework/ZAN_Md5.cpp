#include "ZANCocoaFramework/ZAN_Md5.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <cstring>

namespace corvana {

std::array<std::byte, 16> md5(std::string_view bytes) {
  const QByteArray digest = QCryptographicHash::hash(
      QByteArray::fromRawData(bytes.data(), static_cast<qsizetype>(bytes.size())),
      QCryptographicHash::Md5);
  std::array<std::byte, 16> result{};
  std::memcpy(result.data(), digest.constData(), result.size());
  return result;
}

}  // namespace corvana
