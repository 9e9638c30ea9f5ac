#include "ZANCocoaFramework/ZAN_CaseFold.h"

#include <QString>
#include <algorithm>

namespace corvana {
namespace {

bool isAscii(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

std::string asciiLowercase(std::string_view text) {
  std::string lower(text);
  for (char& c : lower)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return lower;
}

QString qtText(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

}  // namespace

std::string foldedCase(std::string_view text) {
  return isAscii(text) ? asciiLowercase(text) : qtText(text).toCaseFolded().toStdString();
}

std::string lowercase(std::string_view text) {
  return isAscii(text) ? asciiLowercase(text) : qtText(text).toLower().toStdString();
}

}  // namespace corvana
