// A file of texts of any bytes: damage costs the lines that are damaged, and is told by line.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_StringTable.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using corvana::ZAN_StringTable;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  std::vector<ZAN_StringTable::Damage> damages;
  const ZAN_StringTable table(ZAN_StringTable::parse(text, damages));
  const auto lines =
      1 + std::count(text.begin(), text.end(), '\n') + std::count(text.begin(), text.end(), '\r');
  for (const auto& damage : damages)
    if (damage.line < 1 || damage.reason.empty() ||
        (damage.line > lines && !text.starts_with("\xFE\xFF") && !text.starts_with("\xFF\xFE")))
      std::abort();
  // What was read fills its arguments, whatever it asks for.
  for (const auto& [key, value] : table.entries())
    static_cast<void>(table.text(key, {"text", 1, 2.5}));
  return 0;
}
