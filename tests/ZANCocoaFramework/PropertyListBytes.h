#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

#include "tests/ZANCocoaFramework/ArchiveBytes.h"

namespace corvana {

/// A binary property list of objects given in hex (see fromHex), the first of them on top;
/// references are of one byte.
inline ArchiveBytes binaryList(std::initializer_list<std::string_view> objects) {
  ArchiveBytes bytes = fromHex("'bplist00'");
  ArchiveBytes offsets;
  for (const std::string_view object : objects) {
    offsets.push_back(static_cast<std::byte>(bytes.size() >> 8));
    offsets.push_back(static_cast<std::byte>(bytes.size()));
    const ArchiveBytes more = fromHex(object);
    bytes.insert(bytes.end(), more.begin(), more.end());
  }
  const std::size_t table = bytes.size();
  bytes.insert(bytes.end(), offsets.begin(), offsets.end());
  const ArchiveBytes trailer = fromHex("000000000000 02 01 00000000000000");
  bytes.insert(bytes.end(), trailer.begin(), trailer.end());
  bytes.push_back(static_cast<std::byte>(objects.size()));
  bytes.insert(bytes.end(), 14, std::byte{0});
  bytes.push_back(static_cast<std::byte>(table >> 8));
  bytes.push_back(static_cast<std::byte>(table));
  return bytes;
}

/// The body of an XML property list with all that stands around it.
inline std::string xmlList(std::string_view body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST "
         "1.0//EN\" "
         "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">" +
         std::string(body) + "</plist>\n";
}

inline std::span<const std::byte> bytesOf(std::string_view text) {
  return std::as_bytes(std::span(text.data(), text.size()));
}

}  // namespace corvana
