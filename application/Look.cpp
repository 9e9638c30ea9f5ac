#include "application/Look.h"

#include <QAccessibleWidget>
#include <QApplication>
#include <QEvent>
#include <QFontMetrics>
#include <QPainter>
#include <QPalette>
#include <QPixmap>
#include <QScrollArea>
#include <QStyle>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

namespace corvana {

namespace {

constexpr double kMiddle = 128;
constexpr const char* kRole = "role";

QAccessibleInterface* drawnByItself(const QString& /*kind*/, QObject* object) {
  auto* const widget = qobject_cast<QWidget*>(object);
  const QVariant role = widget == nullptr ? QVariant() : widget->property(kRole);
  return role.isValid()
             ? new QAccessibleWidget(widget, static_cast<QAccessible::Role>(role.toInt()))
             : nullptr;
}

QColor mixed(const QColor& one, const QColor& other, double part) {
  const auto of = [part](double a, double b) { return a * (1 - part) + b * part; };
  return QColor::fromRgbF(static_cast<float>(of(one.redF(), other.redF())),
                          static_cast<float>(of(one.greenF(), other.greenF())),
                          static_cast<float>(of(one.blueF(), other.blueF())));
}

QColor textColour() { return QGuiApplication::palette().color(QPalette::WindowText); }

QString& picturesFolder() {
  static QString folder;
  return folder;
}

QString name(const QColor& colour) { return colour.name(); }

/// The second click of a double one finds another page below the same button.
class DoubleClickIsOne final : public QObject {
 public:
  using QObject::QObject;
  bool eventFilter(QObject* /*watched*/, QEvent* event) override {
    return event->type() == QEvent::MouseButtonDblClick;
  }
};

QPixmap tinted(QPixmap pixmap, const QColor& colour) {
  if (pixmap.isNull()) return pixmap;
  QPainter painter(&pixmap);
  painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
  painter.fillRect(pixmap.rect(), colour);
  return pixmap;
}

/// Pictures of one colour, which is that of the text around them.
class InkIcon {
 public:
  static QIcon of(const QIcon& mask, const QColor& plain, const QColor& selected) {
    QIcon icon;
    for (const int size : {16, 20, 24, 32, 48}) {
      const QPixmap pixmap = mask.pixmap(QSize(size, size), 1.0);
      if (pixmap.isNull()) continue;
      icon.addPixmap(tinted(pixmap, plain), QIcon::Normal);
      icon.addPixmap(tinted(pixmap, selected), QIcon::Selected);
    }
    return icon;
  }
};

}  // namespace

namespace Look {

int space(int steps) {
  const int line = QFontMetrics(QApplication::font()).height();
  return std::max(1, steps * line / 4);
}

QFont font(Size size) {
  QFont font = QApplication::font();
  const double points = font.pointSizeF() > 0 ? font.pointSizeF() : 10;
  switch (size) {
    case Size::small:
      font.setPointSizeF(points * 0.9);
      break;
    case Size::body:
      break;
    case Size::strong:
      font.setPointSizeF(points * 1.08);
      font.setWeight(QFont::DemiBold);
      break;
    case Size::heading:
      font.setPointSizeF(points * 1.2);
      font.setWeight(QFont::DemiBold);
      break;
    case Size::title:
      font.setPointSizeF(points * 1.7);
      font.setWeight(QFont::DemiBold);
      break;
  }
  return font;
}

bool isDark() { return QGuiApplication::palette().color(QPalette::Window).lightness() < kMiddle; }

QColor cardColour() {
  const QPalette palette = QGuiApplication::palette();
  const QColor window = palette.color(QPalette::Window);
  const QColor base = palette.color(QPalette::Base);
  if (!isDark()) return base.lightness() > window.lightness() ? base : window;
  const QColor lighter = base.lightness() > window.lightness() ? base : window;
  return mixed(lighter, textColour(), 0.03);
}

QColor pageColour() {
  const QPalette palette = QGuiApplication::palette();
  const QColor window = palette.color(QPalette::Window);
  const QColor base = palette.color(QPalette::Base);
  const QColor darker = base.lightness() > window.lightness() ? window : base;
  return isDark() ? mixed(darker, cardColour(), 0.2) : mixed(darker, cardColour(), 0.5);
}

QColor lineColour() {
  return isDark() ? mixed(cardColour(), textColour(), 0.16)
                  : mixed(pageColour(), textColour(), 0.10);
}

QColor colour(Meaning meaning) {
  switch (meaning) {
    case Meaning::plain:
      break;
    case Meaning::muted:
      return mixed(textColour(), pageColour(), isDark() ? 0.34 : 0.36);
    case Meaning::accent:
      return isDark() ? QColor(108, 168, 232) : QColor(43, 104, 172);
    case Meaning::good:
      return isDark() ? QColor(104, 196, 140) : QColor(30, 122, 70);
    case Meaning::caution:
      return isDark() ? QColor(227, 180, 88) : QColor(150, 90, 0);
    case Meaning::bad:
      return isDark() ? QColor(244, 128, 122) : QColor(180, 42, 36);
  }
  return textColour();
}

QColor surface(Meaning meaning) {
  if (meaning == Meaning::plain) return cardColour();
  if (meaning == Meaning::muted) return mixed(cardColour(), textColour(), 0.07);
  return mixed(cardColour(), colour(meaning), isDark() ? 0.16 : 0.10);
}

void set(QWidget* widget, const char* look) {
  if (widget->property("look").toString() == QLatin1String(look)) return;
  widget->setProperty("look", look);
  widget->style()->unpolish(widget);
  widget->style()->polish(widget);
}

void setPictures(const QString& folder) { picturesFolder() = folder; }

QPixmap picture(const QString& file, int size, Meaning meaning) {
  return ink(file, size, colour(meaning));
}

QPixmap ink(const QString& file, int size, const QColor& colour) {
  QPixmap pixmap(picturesFolder() + '/' + file + QStringLiteral("@2x.png"));
  if (pixmap.isNull()) return pixmap;
  const double scale = qApp->devicePixelRatio();
  pixmap = pixmap.scaled(QSize(size, size) * scale, Qt::KeepAspectRatio, Qt::SmoothTransformation);
  pixmap = tinted(pixmap, colour);
  pixmap.setDevicePixelRatio(scale);
  return pixmap;
}

QIcon icon(const QString& themeName, Meaning meaning) {
  const QColor plain = colour(meaning);
  const QIcon themed = QIcon::fromTheme(themeName + QStringLiteral("-symbolic"));
  if (!themed.isNull() && !themed.availableSizes().isEmpty())
    return InkIcon::of(themed, plain, colour(Meaning::plain));
  const QIcon own(picturesFolder() + '/' + themeName + QStringLiteral("@2x.png"));
  return InkIcon::of(own, plain, colour(Meaning::plain));
}

QIcon dot(Meaning meaning) {
  constexpr int kSize = 16;
  constexpr int kDrawnAt = 4;  // times, for screens with more points
  QPixmap mark(kDrawnAt * kSize, kDrawnAt * kSize);
  mark.fill(Qt::transparent);
  QPainter painter(&mark);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  painter.setBrush(colour(meaning));
  const double edge = mark.width() * 0.25;
  painter.drawEllipse(QRectF(mark.rect()).adjusted(edge, edge, -edge, -edge));
  painter.end();
  QIcon icon(mark);
  icon.addPixmap(mark, QIcon::Selected);
  return icon;
}

QString styleSheet() {
  const QColor text = textColour();
  const QColor accent = colour(Meaning::accent);
  const QColor onAccent = isDark() ? QColor(16, 22, 30) : QColor(255, 255, 255);
  const QColor card = cardColour();
  const QColor line = lineColour();
  const int round = space(2) + 2;
  const int mark = space(3) + 2;
  QString sheet = QStringLiteral(R"(
    QWidget[look="page"] { background: %page; }
    QWidget[look="side"] { background: %page; border: none; border-right: 1px solid %line; }
    QScrollArea, QScrollArea > QWidget > QWidget[look="page"] { background: %page; border: none; }
    QFrame[look="card"] { background: %card; border: 1px solid %line; border-radius: %roundpx; }
    QFrame[look="card-accent"] { background: %card; border: 2px solid %accent; border-radius: %roundpx; }
    QFrame[look="card-caution"] { background: %card; border: 1px solid %caution; border-radius: %roundpx; }
    QFrame[look="card-bad"] { background: %card; border: 1px solid %bad; border-radius: %roundpx; }
    QFrame[look="well-good"] { background: %sgood; border: none; border-radius: %roundpx; }
    QFrame[look="well-caution"] { background: %scaution; border: none; border-radius: %roundpx; }
    QFrame[look="well-bad"] { background: %sbad; border: none; border-radius: %roundpx; }
    QFrame[look="well-accent"] { background: %saccent; border: none; border-radius: %roundpx; }
    QFrame[look="well-muted"] { background: %smuted; border: none; border-radius: %roundpx; }
    QFrame[look="drop-line"] { background: %accent; border: none; }
    QLabel[look="drop-words"] { background: %accent; color: %onaccent; border-radius: %smallpx;
      padding: %pad1px %pad2px; }
    QListWidget[look="side-list"] { background: transparent; border: none; outline: none; }
    QListWidget[look="side-list"]::item { color: %muted; padding: %pad2px; margin: 1px %pad2px;
      border-radius: %smallpx; }
    QListWidget[look="side-list"]::item:hover { background: %smuted; }
    QListWidget[look="side-list"]::item:selected { background: %card; color: %text; }
    QListWidget[look="side-list"]::item:selected:focus { background: %saccent; color: %text; }
    QPushButton { background: %button; color: %text; border: 1px solid %line; border-radius: %smallpx;
      padding: %pad1px %pad3px; min-height: %minpx; }
    QPushButton:hover { background: %hover; }
    QPushButton:pressed { background: %line; }
    QPushButton:focus { border: 2px solid %accent; padding: %pad1fpx %pad3fpx; }
    QPushButton:disabled { color: %muted; background: %page; }
    QPushButton:flat { background: transparent; border-color: transparent; }
    QPushButton:flat:focus { border-color: %accent; }
    QPushButton::menu-indicator { width: 0px; }
    QPushButton[look="primary"] { background: %accent; color: %onaccent; border: 1px solid %accent;
      font-weight: 600; }
    QPushButton[look="primary"]:hover { background: %accenthover; }
    QPushButton[look="primary"]:focus { border: 2px solid %text; }
    QPushButton[look="primary"]:disabled { background: %smuted; color: %muted; border-color: %line; }
    QPushButton[look="toggle"] { padding: %pad1px %pad2px; min-width: %togglepx; }
    QPushButton[look="toggle"]:checked { background: %saccent; border: 1px solid %accent;
      font-weight: 600; }
    QPushButton[look="toggle"]:focus { border: 2px solid %accent; padding: %pad1fpx %pad2px; }
    QLineEdit, QComboBox, QTimeEdit, QSpinBox { background: %field; color: %text;
      border: 1px solid %line; border-radius: %smallpx; padding: %pad1px %pad2px;
      min-height: %minpx; selection-background-color: %accent; selection-color: %onaccent; }
    QLineEdit:focus, QComboBox:focus, QTimeEdit:focus, QSpinBox:focus { border: 2px solid %accent; }
    QComboBox::down-arrow { image: url("%arrow"); width: %markpx; height: %markpx; }
    QComboBox QAbstractItemView { background: %card; color: %text; border: 1px solid %line; }
    QTreeView, QTableView, QListView { background: %card; color: %text; border: 1px solid %line;
      border-radius: %roundpx; outline: none; alternate-background-color: %card; }
    QTreeView::item { padding: %pad1px; border: none; }
    QTreeView::item:selected, QListView::item:selected { background: %saccent; color: %text; }
    QTreeView:focus { border: 1px solid %accent; }
    QHeaderView::section { background: transparent; color: %muted; border: none;
      border-bottom: 1px solid %line; padding: %pad1px; }
    QHeaderView { background: transparent; border: none; }
    QComboBox::drop-down { border: none; width: %dropdownpx; }
    QTimeEdit::up-button, QTimeEdit::down-button, QSpinBox::up-button, QSpinBox::down-button
      { border: none; width: %dropdownpx; }
    QRadioButton::indicator, QCheckBox::indicator, QTreeView::indicator { width: %markpx; height: %markpx;
      background: %card; border: 1px solid %muted; border-radius: 4px; }
    QRadioButton::indicator { border-radius: %markroundpx; }
    QRadioButton::indicator:checked { border: %markthickpx solid %accent; width: %markinpx;
      height: %markinpx; }
    QCheckBox::indicator:checked, QTreeView::indicator:checked { background: %accent;
      border: 1px solid %accent; image: url("%check"); }
    QRadioButton::indicator:focus, QCheckBox::indicator:focus { border-color: %accent; }
    QProgressBar { background: %smuted; border: none; border-radius: 3px; max-height: 6px;
      min-height: 6px; }
    QProgressBar::chunk { background: %accent; border-radius: 3px; }
    QScrollBar:vertical { background: transparent; width: %markpx; margin: 0px; }
    QScrollBar::handle:vertical { background: %line; border-radius: 3px; min-height: %toggle2px;
      margin: 2px 4px; }
    QScrollBar::handle:vertical:hover { background: %muted; }
    QScrollBar:horizontal { background: transparent; height: %markpx; margin: 0px; }
    QScrollBar::handle:horizontal { background: %line; border-radius: 3px; min-width: %toggle2px;
      margin: 4px 2px; }
    QScrollBar::handle:horizontal:hover { background: %muted; }
    QScrollBar::add-line:horizontal, QScrollBar::sub-line:horizontal { width: 0px; }
    QScrollBar::add-page:horizontal, QScrollBar::sub-page:horizontal { background: transparent; }
    QScrollBar::add-line:vertical, QScrollBar::sub-line:vertical { height: 0px; }
    QScrollBar::add-page:vertical, QScrollBar::sub-page:vertical { background: transparent; }
    QToolTip { background: %card; color: %text; border: 1px solid %line; padding: %pad1px; }
  )");
  const std::pair<const char*, QString> values[] = {
      {"%page", name(pageColour())},
      {"%card", name(card)},
      // In the dark a surface that is above or below the card says more than a line around it.
      {"%button", name(isDark() ? surface(Meaning::muted) : card)},
      {"%hover", name(isDark() ? line : surface(Meaning::muted))},
      {"%field", name(isDark() ? pageColour() : card)},
      {"%line", name(line)},
      {"%text", name(text)},
      {"%muted", name(colour(Meaning::muted))},
      {"%accenthover", name(mixed(accent, text, 0.12))},
      {"%accent", name(accent)},
      {"%onaccent", name(onAccent)},
      {"%caution", name(colour(Meaning::caution))},
      {"%bad", name(colour(Meaning::bad))},
      {"%sgood", name(surface(Meaning::good))},
      {"%scaution", name(surface(Meaning::caution))},
      {"%sbad", name(surface(Meaning::bad))},
      {"%saccent", name(surface(Meaning::accent))},
      {"%smuted", name(surface(Meaning::muted))},
      {"%dropdown", QString::number(space(5))},
      {"%markround", QString::number(mark / 2 + 1)},
      {"%markthick", QString::number(mark / 3)},
      {"%markin", QString::number(mark + 2 - 2 * (mark / 3))},
      {"%mark", QString::number(mark)},
      {"%check", picturesFolder() + (isDark() ? QStringLiteral("/emblem-ok@2x.png")
                                              : QStringLiteral("/emblem-ok-light@2x.png"))},
      {"%round", QString::number(round)},
      {"%small", QString::number(space(1) + 2)},
      {"%arrow", picturesFolder() + QStringLiteral("/pan-down@2x.png")},
      {"%toggle2", QString::number(space(10))},
      {"%toggle", QString::number(space(6))},
      {"%min", QString::number(space(5))},
      {"%pad1f", QString::number(space(1) - 1)},
      {"%pad3f", QString::number(space(3) - 1)},
      {"%pad1", QString::number(space(1))},
      {"%pad2", QString::number(space(2) - 1)},
      {"%pad3", QString::number(space(3))},
  };
  for (const auto& [key, value] : values) sheet.replace(QLatin1String(key), value);
  return sheet;
}

}  // namespace Look

TextLabel::TextLabel(const QString& text, Look::Size size, Look::Meaning meaning)
    : QLabel(text), mSize(size), mMeaning(meaning) {
  setTextFormat(Qt::PlainText);
  setWordWrap(true);
  apply();
}

void TextLabel::setMeaning(Look::Meaning meaning) {
  if (mMeaning == meaning) return;
  mMeaning = meaning;
  apply();
}

void TextLabel::changeEvent(QEvent* event) {
  QLabel::changeEvent(event);
  const bool isOther = event->type() == QEvent::PaletteChange ||
                       event->type() == QEvent::ApplicationFontChange ||
                       event->type() == QEvent::StyleChange;
  if (isOther && !mApplies) apply();
}

void TextLabel::apply() {
  mApplies = true;
  setFont(Look::font(mSize));
  QPalette own = palette();
  own.setColor(QPalette::WindowText, Look::colour(mMeaning));
  setPalette(own);
  mApplies = false;
}

Card::Card(QWidget* parent) : QFrame(parent), mColumn(new QVBoxLayout(this)) {
  const int margin = Look::space(4);
  mColumn->setContentsMargins(margin, margin, margin, margin);
  mColumn->setSpacing(Look::space(2));
  setMeaning(Look::Meaning::plain);
}

void Card::setMeaning(Look::Meaning meaning) {
  switch (meaning) {
    case Look::Meaning::accent:
      return Look::set(this, "card-accent");
    case Look::Meaning::caution:
      return Look::set(this, "card-caution");
    case Look::Meaning::bad:
      return Look::set(this, "card-bad");
    default:
      return Look::set(this, "card");
  }
}

QVBoxLayout* makeScrollingColumn(QScrollArea* area, int widest) {
  auto* page = new QWidget;
  page->setProperty("look", "page");
  page->setMaximumWidth(widest * page->fontMetrics().averageCharWidth());
  area->setWidget(page);
  area->setWidgetResizable(true);
  area->setFrameShape(QFrame::NoFrame);
  area->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  return new QVBoxLayout(page);
}

void clearLayout(QLayout* layout) {
  while (QLayoutItem* item = layout->takeAt(0)) {
    if (item->widget() != nullptr) item->widget()->deleteLater();
    if (item->layout() != nullptr) clearLayout(item->layout());
    delete item;
  }
}

void readAs(QWidget* widget, QAccessible::Role role) {
  static const bool isInstalled = [] {
    QAccessible::installFactory(&drawnByItself);
    return true;
  }();
  static_cast<void>(isInstalled);
  widget->setProperty(kRole, static_cast<int>(role));
}

QWidget* makeColumn(std::initializer_list<QWidget*> widgets) {
  auto* column = new QWidget;
  auto* layout = new QVBoxLayout(column);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(Look::space(1));
  layout->addStretch(1);
  for (QWidget* widget : widgets) layout->addWidget(widget);
  layout->addStretch(1);
  return column;
}

QPushButton* makeButton(const QString& text, std::function<void()> pressed, bool isPrimary) {
  auto* button = new QPushButton(text);
  button->setAutoDefault(isPrimary);
  button->setCursor(Qt::PointingHandCursor);
  if (isPrimary) {
    button->setProperty("look", "primary");
    button->installEventFilter(new DoubleClickIsOne(button));
  }
  QObject::connect(button, &QPushButton::clicked, button,
                   [pressed = std::move(pressed)] { pressed(); });
  return button;
}

QPushButton* addInvitation(QVBoxLayout* column, const QString& text, std::function<void()> pressed,
                           bool isPrimary) {
  constexpr int kColumns = 44;
  QPushButton* button = makeButton(text, std::move(pressed), isPrimary);
  button->setFixedWidth(kColumns * button->fontMetrics().averageCharWidth());
  button->setMinimumHeight(Look::space(10));
  column->addWidget(button, 0, Qt::AlignHCenter);
  return button;
}

}  // namespace corvana
