#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace corvana {

/// Rows and columns of a window. The texts are made when a row is looked at, so that a long list
/// costs no more than what is seen of it. Thread: main.
class WindowTable {
 public:
  enum class Tone { plain, dimmed, strong, caution, alert };
  struct Column {
    std::string title;
    bool isNumber = false;  ///< aligned at the far side
    bool isWide = false;    ///< takes the width that is left
    bool sorts = false;
  };

  virtual ~WindowTable() = default;
  virtual std::vector<Column> columns() const = 0;
  virtual std::size_t rowCount() const = 0;
  /// `row` and `column` exist.
  virtual std::string text(std::size_t row, std::size_t column) const = 0;
  /// The icon before the first column, by the name that desktops give it; empty for none.
  virtual std::string icon(std::size_t /*row*/) const { return {}; }
  virtual Tone tone(std::size_t /*row*/) const { return Tone::plain; }
  /// The same for a row before and after a refresh, so that a selection survives it.
  virtual std::int64_t id(std::size_t row) const = 0;
  /// By a column that sorts.
  virtual void sortBy(std::size_t /*column*/, bool /*descending*/) {}
};

}  // namespace corvana
