// What rsync says, of any bytes and in any pieces: the pieces make no difference.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "execute/plain/Rsync.h"

namespace {

struct Heard {
  std::size_t items = 0;
  std::size_t bytes = 0;
};

corvana::RsyncOutput outputOf(std::string_view text, std::size_t piece, Heard& heard) {
  corvana::RsyncOutput output(
      {{"/proc/self/fd/7", "/source", true, false}, {"/proc/self/fd/8", "/copies", false, true}},
      [&heard](const corvana::RsyncOutput::Item& item) {
        ++heard.items;
        heard.bytes += item.name.size();
      });
  for (std::size_t at = 0; at < text.size(); at += piece) {
    output.readOutput(text.substr(at, piece));
    output.readErrors(text.substr(at, piece));
  }
  output.finish();
  return output;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using corvana::RsyncOutput;
  if (size < 1) return 0;
  const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
  Heard inPieces;
  Heard atOnce;
  const RsyncOutput pieces = outputOf(text, 1U + data[0] % 40U, inPieces);
  const RsyncOutput whole = outputOf(text, std::max<std::size_t>(text.size(), 1), atOnce);
  if (inPieces.items != atOnce.items || inPieces.bytes != atOnce.bytes ||
      pieces.bytesCopied() != whole.bytesCopied() || pieces.errorCount() != whole.errorCount() ||
      pieces.lackCount() > pieces.errorCount() || pieces.errors().size() > 200)
    std::abort();
  static_cast<void>(RsyncOutput::itemOfHalf(std::string(text)));
  if (RsyncOutput::decodedName(text).size() > text.size()) std::abort();
  return 0;
}
