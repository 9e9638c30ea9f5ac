#pragma once

#include <cstdint>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "command/Answer.h"

namespace corvana {

class CommandHome;

/// Does what a request (CopiesRequest) says while the terminal shows how far it is, or with
/// `tellsNews` another program hears of it, a line of JSON each. An interrupt stops it.
Result<ZAN_Value> performRequest(CommandHome& home, const Console& console, std::int64_t reference,
                                 const ZAN_Value& wish, bool tellsNews = false);

}  // namespace corvana
