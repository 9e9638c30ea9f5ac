#include "ZANCocoaFramework/ZAN_PropertyList.h"

#include <algorithm>
#include <string_view>

#include "ZANCocoaFramework/ZAN_BinaryPropertyList.h"
#include "ZANCocoaFramework/ZAN_XmlPropertyList.h"

namespace corvana {

namespace {

bool isBinary(std::string_view text) { return text.starts_with(ZAN_BinaryPropertyList::kMagic); }

/// Without a byte-order mark and blanks, which parsers of XML do not all allow before the
/// declaration.
std::string_view withoutLead(std::string_view text) {
  if (text.starts_with("\xef\xbb\xbf")) text.remove_prefix(3);
  text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
  return text;
}

bool isXml(std::string_view text) {
  return text.starts_with("<?xml") || text.starts_with("<!DOCTYPE plist") ||
         text.starts_with("<plist");
}

std::string_view textOf(std::span<const std::byte> data) {
  return {reinterpret_cast<const char*>(data.data()), data.size()};
}

}  // namespace

bool ZAN_PropertyList::isPropertyList(std::span<const std::byte> data) {
  return isBinary(textOf(data)) || isXml(withoutLead(textOf(data)));
}

Result<ZAN_Value> ZAN_PropertyList::propertyListWithData(std::span<const std::byte> data) {
  if (isBinary(textOf(data))) return ZAN_BinaryPropertyList(data).read();
  const std::string_view text = withoutLead(textOf(data));
  if (!isXml(text)) return Error{ErrorKind::damaged, "this is no property list"};
  return readXmlPropertyList(std::as_bytes(std::span(text.data(), text.size())));
}

std::string ZAN_PropertyList::xmlPropertyList(const ZAN_Value& root) {
  return writeXmlPropertyList(root);
}

}  // namespace corvana
