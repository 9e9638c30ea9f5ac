#pragma once

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// Values as JSON and back, with nothing lost but mutability and shared identity.
///
/// true and false are numbers of letter 'c' with 1 and 0; an integer is 'i' when it fits 32 bits,
/// else 'q'; a real, always with a point or an exponent, is 'd'. Any other stored letter, NaN and
/// the infinities are
/// {"$number": "text", "type": "q"}. A date is {"$date": seconds since 2001}, data {"$data":
/// "base64"}, data that holds a sequential archive and re-encodes to the same bytes {"$archive":
/// value}, a set {"$set": […]}, an index set {"$indexes": [[first, count], …]}, an object of an
/// unknown class {"$object": …}, and a dictionary with a key that is not a text or begins with "$"
/// {"$dictionary": [[key, value], …]}. Thread: any.
class ZAN_Json {
 public:
  ZAN_Json() = delete;

  struct Options {
    bool maskPasswords =
        false;             ///< values below keys that hold "password" in any case become "****"
    bool compact = false;  ///< one line, else indented by two blanks
    bool plain = false;    ///< numbers of any letter as JSON numbers, for programs that only read
  };

  /// Texts that are not UTF-8 are shown with replacement characters. `limit` when what is shared
  /// within the value would be written out more often than is reasonable.
  static Result<std::string> jsonWithValue(const ZAN_Value& value, const Options& options);
  static Result<std::string> jsonWithValue(const ZAN_Value& value) {
    return jsonWithValue(value, Options{});
  }

  /// The error's text is the reason alone, with the place where there is one.
  static Result<ZAN_Value> valueWithJson(std::string_view json);
};

}  // namespace corvana
