#pragma once

#include <QTimer>
#include <QWidget>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "application/BackupCard.h"

class QLabel;
class QScrollArea;

namespace corvana {

/// The cards of backups below each other in an area that scrolls. There are only as many as are in
/// sight and a page above and below it; they show other backups as the area scrolls. With the mouse
/// a card is taken to another place. Thread: main.
class CardList final : public QWidget {
 public:
  /// `area` is what it lies in, and outlives it as `hooks` do.
  CardList(Household& household, const BackupCard::Hooks& hooks, QScrollArea& area);
  ~CardList() override;

  /// A place to be dropped at: before or behind another backup.
  struct Place {
    std::int64_t other = 0;
    bool isBehind = false;

    bool operator==(const Place&) const = default;
  };

  /// Has the card show the backup of that row.
  std::function<void(BackupCard& card, std::size_t row)> onFill;
  /// In words, what being dropped there means besides the place; nothing where it means nothing.
  std::function<std::optional<QString>(std::int64_t reference, const Place& place)> onLook;
  std::function<void(std::int64_t reference, const Place& place)> onDrop;

  /// The backups, in their order; all cards are filled anew.
  void setRows(std::vector<std::int64_t> references);

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;
  void showEvent(QShowEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  struct Shown {
    BackupCard* card;
    std::size_t row;
    bool isFilled = false;  ///< and as high as what is in it
  };
  /// A card that is held by the mouse.
  struct Drag {
    BackupCard* card;
    std::int64_t reference;
    QPoint grip;            ///< in the card
    QPoint pointer;         ///< on the screen
    bool isMoving = false;  ///< it has left its place
    std::optional<Place> place = {};
  };

  int topOf(std::size_t row) const;
  bool mustStay(const Shown& shown) const;
  Shown& shownFor(std::size_t row, std::size_t first, std::size_t last);
  void fill(Shown& shown);
  void place();
  void orderTabs();

  bool follow(BackupCard& card, QMouseEvent& event);
  void take();
  void look();
  void scrollAtEdge();
  void letGo(bool isDropped);

  Household& mHousehold;
  const BackupCard::Hooks& mHooks;
  QScrollArea& mArea;
  std::vector<std::int64_t> mReferences;
  std::vector<int> mHeights;  ///< of the rows; one that was not seen yet is as high as another was
  int mUsualHeight;
  int mWidth = 0;  ///< that the heights are for
  std::vector<Shown> mShown;
  bool mPlaces = false;
  std::optional<Drag> mDrag;
  QLabel* mPicture;  ///< of the card that is dragged
  QFrame* mLine;     ///< where it would come to
  QLabel* mWords;
  QTimer mScrolls;
};

}  // namespace corvana
