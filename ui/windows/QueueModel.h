#pragma once

#include "ui/UserInterfaceSources.h"
#include "ui/windows/WindowTable.h"

namespace corvana {

/// The window of the queue: what runs, what waits and in which order. Thread: main.
class QueueModel final : public WindowTable {
 public:
  explicit QueueModel(const UserInterfaceSources& sources) : m(sources) {}

  std::vector<Column> columns() const override;
  std::size_t rowCount() const override;
  std::string text(std::size_t row, std::size_t column) const override;
  Tone tone(std::size_t row) const override;
  /// The reference, or minus it for the copy of the head that a crash leaves behind it.
  std::int64_t id(std::size_t row) const override;

  /// The one that is being executed stays where it is.
  bool canMove(std::size_t row) const;
  /// Puts a row before the one at `before`, or at the end; nothing passes the running one.
  void move(std::size_t row, std::size_t before);
  bool canRemove(std::size_t row) const { return canMove(row); }
  void remove(const std::vector<std::size_t>& rows);
  bool canRunNow(std::size_t row) const { return canMove(row); }
  /// Due now and next in line, also while automatic execution is off.
  void runNow(std::size_t row);

  bool isExecuting() const;
  std::string pauseTitle() const;
  void pauseOrContinue();
  void stop();
  void skip();
  void showProgress();
  /// A line below the list: how many wait, and what holds them back.
  std::string summary() const;

 private:
  std::string state(std::size_t row) const;

  const UserInterfaceSources& m;
};

}  // namespace corvana
