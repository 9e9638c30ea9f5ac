#pragma once

#include <QAccessible>
#include <QColor>
#include <QFont>
#include <QFrame>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <functional>
#include <initializer_list>

class QBoxLayout;
class QHBoxLayout;
class QLayout;
class QScrollArea;
class QVBoxLayout;

namespace corvana {

/// How everything of this program looks: spacing, sizes of type, cards, colours with a meaning.
/// Colours follow the palette of the desktop, light or dark; sizes follow its font. What a widget
/// is stands in its property "look", and `styleSheet` says the rest. Thread: main.
namespace Look {

/// Steps of the one grid that all distances are on, in pixels that follow the font.
int space(int steps);

enum class Size {
  small,    ///< what stands below something
  body,     ///< the desktop's own
  strong,   ///< the same, heavier: the name of a thing
  heading,  ///< above a part of a page
  title     ///< once a page
};
QFont font(Size size);

/// What a colour means.
enum class Meaning { plain, muted, accent, good, caution, bad };
/// Readable as text on pages and cards.
QColor colour(Meaning meaning);
/// The same as a surface behind text.
QColor surface(Meaning meaning);
bool isDark();
QColor pageColour();
QColor cardColour();
QColor lineColour();

/// Of the whole window; made anew when palette or font become others.
QString styleSheet();
/// "look" of a widget that is there already.
void set(QWidget* widget, const char* look);

/// From the desktop's theme in the colour of the text, else our own.
QIcon icon(const QString& themeName, Meaning meaning = Meaning::plain);
/// A mark of that colour, the same in a row that is chosen.
QIcon dot(Meaning meaning);
/// One of our own, by its file in the resources, in that colour.
QPixmap picture(const QString& name, int size, Meaning meaning);
QPixmap ink(const QString& name, int size, const QColor& colour);
/// Where our own lie; to be said once at the start.
void setPictures(const QString& folder);

}  // namespace Look

/// A line of text that wraps, is never taken for markup, and follows the look.
class TextLabel final : public QLabel {
 public:
  explicit TextLabel(const QString& text = {}, Look::Size size = Look::Size::body,
                     Look::Meaning meaning = Look::Meaning::plain);
  void setMeaning(Look::Meaning meaning);

 protected:
  void changeEvent(QEvent* event) override;

 private:
  void apply();

  Look::Size mSize;
  Look::Meaning mMeaning;
  bool mApplies = false;
};

/// A surface with round corners that holds one thing.
class Card : public QFrame {
 public:
  /// The layout has the usual margins.
  explicit Card(QWidget* parent = nullptr);
  QVBoxLayout* column() const { return mColumn; }
  /// The thing in it wants attention, or has just been chosen.
  void setMeaning(Look::Meaning meaning);

 private:
  QVBoxLayout* mColumn;
};

/// Puts a page into the area, as wide as that but no wider than `widest` characters,
/// since long lines are hard to read; it scrolls up and down. Gives the page's column.
QVBoxLayout* makeScrollingColumn(QScrollArea* area, int widest);

/// Takes out all that is in it; widgets go with the next pass of the loop.
void clearLayout(QLayout* layout);

/// Has it be read out as that. Of a widget that is drawn by itself nothing else says what it is.
void readAs(QWidget* widget, QAccessible::Role role);

/// One below the other, in the middle of the height, as the parts of a card stand.
QWidget* makeColumn(std::initializer_list<QWidget*> widgets);

/// `pressed` is called for mouse and keyboard. A primary one is what the page is there for.
QPushButton* makeButton(const QString& text, std::function<void()> pressed, bool isPrimary = false);

/// The same, large and in the middle of a page that has nothing else yet.
QPushButton* addInvitation(QVBoxLayout* column, const QString& text, std::function<void()> pressed,
                           bool isPrimary = false);

}  // namespace corvana
