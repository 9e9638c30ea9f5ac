#pragma once

#include <string>
#include <vector>

#include "ui/UserInterfaceSources.h"
#include "ui/windows/WindowTable.h"

namespace corvana {

/// The execution survey: whether an execution runs and answers, how it is to be run, what it worked
/// on lately, and where the scheduler's own time goes. Thread: main.
class SurveyModel final : public WindowTable {
 public:
  /// Begins to measure.
  explicit SurveyModel(const UserInterfaceSources& sources);
  ~SurveyModel() override;

  std::string title() const;
  /// Since when what runs, as of the last look.
  std::string line() const;
  std::string reply() const;
  std::vector<std::string> timings() const;

  std::vector<std::string> modes() const;
  int mode() const;
  void setMode(int mode) const;

  /// The latest paths, newest first.
  std::vector<Column> columns() const override;
  std::size_t rowCount() const override;
  std::string text(std::size_t row, std::size_t column) const override;
  std::string icon(std::size_t row) const override;
  std::int64_t id(std::size_t row) const override { return static_cast<std::int64_t>(row); }

 private:
  const UserInterfaceSources& m;
};

}  // namespace corvana
