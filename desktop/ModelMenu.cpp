#include "desktop/ModelMenu.h"

#include <algorithm>
#include <utility>

#include "desktop/WindowParts.h"
#include "platform/RunLoop.h"

namespace corvana {

namespace {

constexpr int kHeadingPixels = 14;
constexpr int kHeadingMargin = 4;
constexpr int kIconPixels = 16;
/// Longer names are cut in their middle.
constexpr int kLetters = 50;

/// Readable on light and dark menus.
QColor shade(MenuColour colour) {
  switch (colour) {
    case MenuColour::information:
      return isDark() ? QColor(0x6c, 0xae, 0xf0) : QColor(0x2f, 0x6f, 0xb0);
    case MenuColour::warning:
      return cautionColour();
    case MenuColour::alarm:
      return alertColour();
    case MenuColour::secondary:
      return QColor(0x8a, 0x8a, 0x8a);
    case MenuColour::label:
      break;
  }
  return {};
}

/// The line at the top of a menu: oblique, in its colour, in the middle. Panels that draw the menu
/// themselves take its text.
class HeadingAction final : public QWidgetAction {
 public:
  using QWidgetAction::QWidgetAction;
  void setColour(const QColor& colour) {
    mColour = colour;
    for (QWidget* made : createdWidgets()) dress(*static_cast<QLabel*>(made));
  }

 protected:
  QWidget* createWidget(QWidget* parent) override {
    auto* label = new QLabel(parent);
    label->setTextFormat(Qt::PlainText);
    label->setAlignment(Qt::AlignCenter);
    label->setMargin(kHeadingMargin);
    QFont letters = label->font();
    letters.setItalic(true);
    letters.setPixelSize(
        std::max(kHeadingPixels * label->logicalDpiY() / 96, QFontInfo(letters).pixelSize()));
    label->setFont(letters);
    dress(*label);
    connect(this, &QAction::changed, label, [this, label] { dress(*label); });
    return label;
  }

 private:
  void dress(QLabel& label) const {
    label.setText(text().replace(QStringLiteral("&&"), QStringLiteral("&")));
    QPalette palette = QApplication::palette(&label);
    if (mColour.isValid()) palette.setColor(QPalette::WindowText, mColour);
    label.setPalette(palette);
  }

  QColor mColour;
};

/// Not every desktop draws a menu's letters in colours of their own; a dot says it everywhere.
QIcon dot(const QColor& colour) {
  QPixmap pixmap(kIconPixels, kIconPixels);
  pixmap.fill(Qt::transparent);
  QPainter painter(&pixmap);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setBrush(colour);
  painter.setPen(Qt::NoPen);
  painter.drawEllipse(3, 3, kIconPixels - 6, kIconPixels - 6);
  QIcon icon(pixmap);
  // A line that cannot be chosen is not to look grey for that.
  icon.addPixmap(pixmap, QIcon::Disabled);
  return icon;
}

QIcon iconOf(const MenuItem& item) {
  if (item.colour != MenuColour::label) return dot(shade(item.colour));
  const QStyle* style = QApplication::style();
  switch (item.icon) {
    case MenuIcon::folder:
      return style->standardIcon(QStyle::SP_DirIcon);
    case MenuIcon::home:
      return style->standardIcon(QStyle::SP_DirHomeIcon);
    case MenuIcon::volume:
      return style->standardIcon(QStyle::SP_DriveHDIcon);
    case MenuIcon::file:
      return style->standardIcon(QStyle::SP_FileIcon);
    case MenuIcon::none:
      break;
  }
  return {};
}

bool sameShape(const MenuItem& a, const MenuItem& b) {
  return a.kind == b.kind && a.checkable == b.checkable && a.exclusive == b.exclusive &&
         a.icon == b.icon;
}

/// A menu that is higher than the screen scrolls, instead of growing beside itself.
class ScrollingMenus final : public QProxyStyle {
 public:
  int styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                QStyleHintReturn* data) const override {
    return hint == SH_Menu_Scrollable ? 1 : QProxyStyle::styleHint(hint, option, widget, data);
  }
};

}  // namespace

ModelMenu::ModelMenu(RunLoop& runLoop, Words words) : mRunLoop(runLoop), mWords(std::move(words)) {
  auto* scrolling = new ScrollingMenus;
  scrolling->setParent(this);
  setStyle(scrolling);
}

void ModelMenu::setItems(MenuItem::List items) {
  std::size_t same = 0;
  while (same < items.size() && same < mRows.size() && sameShape(items[same], mRows[same]->item)) {
    mRows[same]->item = std::move(items[same]);
    draw(*mRows[same]);
    ++same;
  }
  shorten(same);
  for (; same < items.size(); ++same) append(std::move(items[same]));
}

void ModelMenu::shorten(std::size_t count) {
  while (mRows.size() > count) {
    // One of them may be what is being handled now.
    Row& row = *mRows.back();
    removeAction(row.action);
    if (row.submenu != nullptr) {
      row.submenu->disconnect();
      row.submenu->deleteLater();
    } else {
      row.action->disconnect();
      row.action->deleteLater();
    }
    mRows.pop_back();
  }
}

void ModelMenu::append(MenuItem item) {
  mRows.push_back(std::make_unique<Row>());
  Row& row = *mRows.back();
  row.item = std::move(item);
  if (row.item.kind == MenuItem::Kind::submenu) {
    row.submenu = new ModelMenu(mRunLoop, mWords);
    row.submenu->setParent(this, row.submenu->windowFlags());
    row.action = row.submenu->menuAction();
    connect(row.submenu, &QMenu::aboutToShow, row.submenu,
            [menu = row.submenu, &row] { menu->fill(row.item); });
  } else {
    row.action =
        row.item.kind == MenuItem::Kind::heading ? new HeadingAction(this) : new QAction(this);
    row.action->setSeparator(row.item.kind == MenuItem::Kind::separator);
    row.action->setMenuRole(QAction::NoRole);
    if (row.item.exclusive) {
      // Beside each other, so the one before knows their group.
      const bool goesOn = mRows.size() > 1 && mRows[mRows.size() - 2]->item.exclusive;
      auto* group =
          goesOn ? mRows[mRows.size() - 2]->action->actionGroup() : new QActionGroup(this);
      group->addAction(row.action);
    }
    connect(row.action, &QAction::triggered, this, [&row] {
      // What it does may redraw this menu.
      const auto act = row.item.action;
      row.action->setChecked(row.item.checked);
      if (act) act();
    });
  }
  addAction(row.action);
  row.action->setIconVisibleInMenu(true);
  draw(row);
}

/// Ampersands and underscores are letters in what users have named. On the bus an underscore marks
/// the letter to underline, and Qt makes one of the first ampersand that it finds.
QString ModelMenu::label(const std::string& title) {
  QString shown = fontMetrics().elidedText(qt(title), Qt::ElideMiddle,
                                           kLetters * fontMetrics().averageCharWidth());
  if (platformMenu() == nullptr) return shown.replace('&', QStringLiteral("&&"));
  shown.replace('_', QStringLiteral("__"));
  return shown.contains('&') ? '&' + shown : shown;
}

void ModelMenu::draw(Row& row) {
  if (row.item.kind == MenuItem::Kind::separator) return;
  QAction& action = *row.action;
  action.setText(label(row.item.title));
  action.setEnabled(row.item.enabled);
  action.setCheckable(row.item.checkable);
  if (row.item.checkable) action.setChecked(row.item.checked);
  const int colour = static_cast<int>(row.item.colour);
  // A new icon counts as a change even when it looks the same.
  if (action.property("colour") != QVariant(colour)) {
    action.setProperty("colour", colour);
    action.setIcon(iconOf(row.item));
    if (auto* heading = dynamic_cast<HeadingAction*>(&action)) {
      heading->setColour(shade(row.item.colour));
    }
  }
}

void ModelMenu::fill(const MenuItem& item) {
  if (item.fill) {
    setItems(item.fill());
  } else if (item.read) {
    read(item);
  }
}

MenuItem::List ModelMenu::contents(const MenuItem& folder, MenuItem::List items) const {
  if (items.empty()) items.push_back(MenuItem::note(utf8(mWords.nothing)));
  if (folder.action) {
    items.insert(items.begin(), MenuItem::separator());
    items.insert(items.begin(), MenuItem::command(utf8(mWords.open), folder.action));
  }
  return items;
}

void ModelMenu::read(const MenuItem& item) {
  if (mRows.empty()) setItems(contents(item, {MenuItem::note(utf8(mWords.reading))}));
  // Whoever hangs on a disk that does not answer is not asked a second time.
  if (mReading != nullptr) return;
  mReading = std::make_shared<int>(0);
  mRunLoop.detachThread("menu", [&loop = mRunLoop, waits = std::weak_ptr<int>(mReading),
                                 read = item.read, folder = item, this] {
    MenuItem::List items = read();
    loop.performOnMain([waits, folder, items = std::move(items), this]() mutable {
      if (waits.expired()) return;
      mReading.reset();
      setItems(contents(folder, std::move(items)));
    });
  });
}

}  // namespace corvana
