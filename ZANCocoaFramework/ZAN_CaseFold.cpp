#include "ZANCocoaFramework/ZAN_CaseFold.h"

#include <QString>
#include <algorithm>

namespace corvana {

std::string foldedCase(std::string_view text) {
  const bool ascii =
      std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  if (!ascii)
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()))
        .toCaseFolded()
        .toStdString();
  std::string folded(text);
  for (char& c : folded)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return folded;
}

}  // namespace corvana
