#include "remote/UtilsCommon.h"

#include "ZANCocoaFramework/ZAN_Utf8.h"

namespace corvana {

std::uint32_t UtilsCommon::getPasswordCode(std::string_view password) {
  constexpr std::size_t kLeastUnits = 32;
  const std::u16string units = utf16(password);
  if (units.empty()) return 0;
  std::u16string text = units;
  while (text.size() < kLeastUnits) text += u'*' + units;
  std::uint32_t code = 0;
  for (std::size_t i = 0; i < text.size(); ++i)
    code = (text[i] * static_cast<std::uint32_t>(i) + code) * 3U;
  return code;
}

}  // namespace corvana
