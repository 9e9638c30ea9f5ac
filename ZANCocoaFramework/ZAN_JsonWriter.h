#pragma once

#include "ZANCocoaFramework/ZAN_Json.h"

namespace corvana {

/// Writes one value as JSON into a text whose size is bounded.
class ZAN_JsonWriter {
 public:
  ZAN_JsonWriter(const ZAN_Json::Options& options, std::size_t limit)
      : mOptions(options), mLimit(limit) {}

  void write(const ZAN_Value& value);
  /// Whether the limit was passed; what is written is then incomplete.
  bool full() const { return mText.size() > mLimit; }
  std::string take() { return std::move(mText); }

 private:
  void writeNumber(const ZAN_Value& value);
  void writeReal(double value);
  void writeText(std::string_view text);
  void writeDate(double time);
  void writeData(const ZAN_Value& value);
  void writeElements(const ZAN_Value& value);
  void writeDictionary(const ZAN_Value& value);
  void writePairs(const ZAN_Value& value);
  void writeOpaque(const ZAN_Value& value);
  void writeValueOf(const ZAN_Value::Entry& entry);
  void writeForm(std::string_view key);

  void open(char bracket);
  void next();  ///< before each element, after the first a comma
  void close(char bracket);
  void newLine();

  const ZAN_Json::Options mOptions;
  const std::size_t mLimit;
  std::string mText;
  int mIndent = 0;
  int mArchives = 0;
  bool mEmpty = true;  ///< nothing stands yet in the innermost list
};

}  // namespace corvana
