#pragma once

#include <QMenu>
#include <memory>
#include <vector>

#include "ui/MenuItem.h"

namespace corvana {

class RunLoop;

/// A menu drawn from its model. New items are taken over in place where they can be, so that what
/// shows the menu elsewhere keeps its bearings. Thread: main.
class ModelMenu final : public QMenu {
 public:
  struct Words {
    QString reading;  ///< while a folder is being read
    QString nothing;  ///< in an empty folder
    QString open;     ///< the item that opens the folder itself
  };

  ModelMenu(RunLoop& runLoop, Words words);

  void setItems(MenuItem::List items);

 private:
  struct Row {
    MenuItem item;
    QAction* action = nullptr;
    ModelMenu* submenu = nullptr;
  };

  void append(MenuItem item);
  void draw(Row& row);
  QString label(const std::string& title);
  void shorten(std::size_t count);
  void fill(const MenuItem& item);
  void read(const MenuItem& item);
  MenuItem::List contents(const MenuItem& folder, MenuItem::List items) const;

  RunLoop& mRunLoop;
  Words mWords;
  std::vector<std::unique_ptr<Row>> mRows;
  std::shared_ptr<int> mReading;  ///< the reading whose result is waited for
};

}  // namespace corvana
