#pragma once

#include <string>
#include <string_view>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "actions/DataFiles.h"

namespace corvana {

/// Which extensions belong to which type of file ("Image", "Video", ...): a dictionary of
/// comma-separated lists by type. Thread: main.
class FileTypes {
 public:
  explicit FileTypes(DataFiles& files) : mFiles(files) {}

  /// The stored dictionary, or the usual types when there is none.
  ZAN_Value readTypesForExtensions();
  Outcome saveTypesByExtensions(const ZAN_Value& types);
  /// Name of the type that has the extension, whatever its case; empty when none has.
  std::string getTypeForExtension(std::string_view extension);
  /// All types with their extensions: an array of {"Type", "Extensions"} sorted by type.
  ZAN_Value getAllTypesAndExtensions();
  /// The same as text, one line "<type>: <extensions>" each.
  std::string getAllTypesAndExtensionsStr();

  static ZAN_Value defaultTypes();
  static std::string getExtensionsForType(std::string_view type, const ZAN_Value& types);
  /// Adds those that the type does not have yet; a type that is not there is added.
  static void addExtensions(std::string_view extensions, std::string_view type, ZAN_Value& types);
  /// Without spaces, without empty items, without leading and trailing comma.
  static std::string cleanExtensions(std::string_view extensions);

 private:
  DataFiles& mFiles;
};

}  // namespace corvana
