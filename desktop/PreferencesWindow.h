#pragma once

#include <functional>
#include <vector>

#include "desktop/AgentWindow.h"
#include "ui/windows/PreferencesModel.h"

class QFormLayout;
class QListWidget;
class QStackedWidget;

namespace corvana {

/// Every preference, a page at a time; a change counts at once.
class PreferencesWindow final : public AgentWindow {
 public:
  explicit PreferencesWindow(const UserInterfaceSources& sources);
  void refresh() override;
  QWidget* firstFocus() override;

 private:
  using Item = PreferencesModel::Item;
  QWidget* makePage(const PreferencesModel::Page& page);
  void addRow(QFormLayout* form, const Item& item);
  QWidget* makeField(const Item& item);
  QWidget* makeChoice(const Item& item);
  QWidget* makeNumber(const Item& item);
  QWidget* makeText(const Item& item);
  QWidget* makeShortcut(const Item& item);
  QWidget* makePlace(const Item& item);

  PreferencesModel mModel;
  QListWidget* mPages;
  QStackedWidget* mStack;
  std::vector<std::function<void()>> mReads;  ///< take each value anew
};

}  // namespace corvana
