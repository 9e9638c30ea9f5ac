#include "desktop/AgentWindow.h"

#include <functional>
#include <vector>

#include "desktop/ShortcutField.h"
#include "desktop/WindowParts.h"
#include "ui/windows/PreferencesModel.h"

namespace corvana {

namespace {

constexpr int kSliderFrom = 50;
constexpr int kChoiceLetters = 16;
constexpr int kListLines = 6;

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
  QWidget* makeList(const Item& item);

  PreferencesModel mModel;
  QListWidget* mPages;
  QStackedWidget* mStack;
  std::vector<std::function<void()>> mReads;  ///< take each value anew
};

PreferencesWindow::PreferencesWindow(const UserInterfaceSources& sources)
    : AgentWindow(Window::preferences, sources),
      mModel(sources),
      mPages(new QListWidget),
      mStack(new QStackedWidget) {
  setWindowTitle(text("PrefTitle"));
  mPages->setAccessibleName(text("PrefTitle"));
  for (const PreferencesModel::Page& page : mModel.pages()) {
    mPages->addItem(qt(page.title));
    mStack->addWidget(makePage(page));
  }
  connect(mPages, &QListWidget::currentRowChanged, mStack, &QStackedWidget::setCurrentIndex);
  mPages->setCurrentRow(0);
  mPages->setSpacing(2);
  mPages->setFixedWidth(mPages->sizeHintForColumn(0) + 6 * fontMetrics().averageCharWidth());
  auto* layout = new QHBoxLayout(this);
  layout->addWidget(mPages);
  layout->addWidget(mStack, 1);
  resizeByFont(this, 110, 30);
}

QWidget* PreferencesWindow::firstFocus() { return mPages; }

void PreferencesWindow::refresh() {
  for (const auto& read : mReads) read();
}

QWidget* PreferencesWindow::makePage(const PreferencesModel::Page& page) {
  auto* content = new QWidget;
  auto* form = new QFormLayout(content);
  form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
  for (const Item& item : page.items) addRow(form, item);
  auto* scroll = new QScrollArea;
  scroll->setWidgetResizable(true);
  scroll->setFrameShape(QFrame::NoFrame);
  scroll->setFocusPolicy(Qt::NoFocus);
  scroll->setWidget(content);
  return scroll;
}

void PreferencesWindow::addRow(QFormLayout* form, const Item& item) {
  QWidget* field = makeField(item);
  field->setEnabled(item.lacking.empty());
  const bool namesItself =
      item.kind == PreferencesModel::Kind::checkBox || item.kind == PreferencesModel::Kind::command;
  if (namesItself) {
    form->addRow(field);
  } else {
    form->addRow(qt(item.label), field);
    field->setAccessibleName(qt(item.label));
    if (auto* number = qobject_cast<QSpinBox*>(field->focusProxy())) {
      number->setAccessibleName(qt(item.label));
    }
  }
  const std::string& help = item.lacking.empty() ? item.help : item.lacking;
  if (help.empty()) return;
  auto* label = makeLabel(qt(help));
  label->setForegroundRole(QPalette::PlaceholderText);
  label->setContentsMargins(2 * fontMetrics().averageCharWidth(), 0, 0,
                            fontMetrics().lineSpacing() / 3);
  field->setAccessibleDescription(qt(help));
  form->addRow(label);
}

QWidget* PreferencesWindow::makeField(const Item& item) {
  using Kind = PreferencesModel::Kind;
  switch (item.kind) {
    case Kind::checkBox: {
      auto* box = new QCheckBox(qt(item.label));
      mReads.emplace_back([box, item] { box->setChecked(item.read().boolValue()); });
      connect(box, &QCheckBox::clicked, this,
              [this, item](bool on) { mModel.change(item, on ? 1 : 0); });
      return box;
    }
    case Kind::choice:
      return makeChoice(item);
    case Kind::number:
      return makeNumber(item);
    case Kind::text:
    case Kind::password:
      return makeText(item);
    case Kind::shortcut:
      return makeShortcut(item);
    case Kind::place:
      return makePlace(item);
    case Kind::command: {
      auto* row = new QWidget;
      auto* layout = new QHBoxLayout(row);
      layout->setContentsMargins(0, 0, 0, 0);
      addButton(layout, qt(item.label), item.perform);
      layout->addStretch();
      return row;
    }
    case Kind::fact: {
      if (item.rename) return makeList(item);
      auto* label = makeLabel();
      mReads.emplace_back([label, item] { label->setText(qt(item.read().string())); });
      return label;
    }
  }
  return new QWidget;
}

QWidget* PreferencesWindow::makeChoice(const Item& item) {
  auto* box = new QComboBox;
  leaveToWheelOnlyWithFocus(box);
  for (const std::string& choice : item.choices) box->addItem(qt(choice));
  box->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
  box->setMinimumContentsLength(kChoiceLetters);
  mReads.emplace_back(
      [box, item] { box->setCurrentIndex(static_cast<int>(item.read().integerValue())); });
  connect(box, &QComboBox::activated, this,
          [this, item](int index) { mModel.change(item, index); });
  return box;
}

QWidget* PreferencesWindow::makeNumber(const Item& item) {
  auto* box = new QSpinBox;
  box->setRange(static_cast<int>(item.least), static_cast<int>(item.most));
  box->setSuffix(qt(item.unit));
  // The number that is being typed is not yet the one that is meant.
  box->setKeyboardTracking(false);
  leaveToWheelOnlyWithFocus(box);
  const auto change = [this, item](int number) {
    if (item.read().isReal()) {
      mModel.change(item, static_cast<double>(number));
    } else {
      mModel.change(item, number);
    }
  };
  connect(box, &QSpinBox::valueChanged, this, change);
  QSlider* slider = nullptr;
  if (item.most >= kSliderFrom) {
    slider = new QSlider(Qt::Horizontal);
    slider->setRange(box->minimum(), box->maximum());
    slider->setTracking(false);
    leaveToWheelOnlyWithFocus(slider);
    slider->setAccessibleName(qt(item.label));
    connect(slider, &QSlider::valueChanged, box, &QSpinBox::setValue);
    connect(slider, &QSlider::sliderMoved, box, [box](int value) {
      const QSignalBlocker blocker(box);
      box->setValue(value);
    });
    // Its value follows only after this.
    connect(slider, &QSlider::sliderReleased, this,
            [slider, change] { change(slider->sliderPosition()); });
  }
  mReads.emplace_back([box, slider, item] {
    const QSignalBlocker blocker(box);
    if (!box->hasFocus()) box->setValue(static_cast<int>(item.read().doubleValue()));
    if (slider == nullptr || slider->isSliderDown()) return;
    const QSignalBlocker sliderBlocker(slider);
    slider->setValue(box->value());
  });
  if (slider == nullptr) return box;
  auto* both = new QWidget;
  auto* row = new QHBoxLayout(both);
  row->setContentsMargins(0, 0, 0, 0);
  row->addWidget(slider, 1);
  row->addWidget(box);
  both->setFocusProxy(box);
  return both;
}

QWidget* PreferencesWindow::makeText(const Item& item) {
  auto* edit = new QLineEdit;
  if (item.kind == PreferencesModel::Kind::password) edit->setEchoMode(QLineEdit::Password);
  mReads.emplace_back([edit, item] {
    if (!edit->isModified()) edit->setText(qt(item.read().string()));
  });
  connect(edit, &QLineEdit::editingFinished, this, [this, edit, item] {
    if (!edit->isModified()) return;
    edit->setModified(false);
    mModel.change(item, utf8(edit->text()));
  });
  return edit;
}

QWidget* PreferencesWindow::makeShortcut(const Item& item) {
  auto* field =
      new ShortcutField({text("ButtonRecord"), text("ButtonClear"), text("PrefShortcutNone"),
                         text("PrefShortcutPress"),
                         [this](const ZAN_Value& keys) { return mModel.shortcutText(keys); }});
  field->onChanged = [this, item](const ZAN_Value& keys) { mModel.change(item, keys); };
  mReads.emplace_back([field, item] { field->setKeys(item.read()); });
  field->setFocusProxy(field->button());
  return field;
}

QWidget* PreferencesWindow::makePlace(const Item& item) {
  auto* both = new QWidget;
  auto* row = new QHBoxLayout(both);
  row->setContentsMargins(0, 0, 0, 0);
  auto* label = makeLabel();
  row->addWidget(label, 1);
  addButton(row, text("ButtonReset"), [this, item] {
    mModel.change(item, {});
    refresh();
  });
  mReads.emplace_back([label, item] { label->setText(qt(item.read().string())); });
  return both;
}

QWidget* PreferencesWindow::makeList(const Item& item) {
  auto* both = new QWidget;
  auto* column = new QVBoxLayout(both);
  column->setContentsMargins(0, 0, 0, 0);
  auto* list = new QListWidget;
  list->setAccessibleName(qt(item.label));
  list->setFixedHeight(kListLines * fontMetrics().lineSpacing());
  both->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
  column->addWidget(list);
  auto* row = new QHBoxLayout;
  column->addLayout(row);
  auto* rename = addButton(row, text("ButtonRename"), [list] {
    if (list->currentItem() != nullptr) list->editItem(list->currentItem());
  });
  auto* forget = addButton(row, text("ButtonForget"), [this, list, item] {
    const QListWidgetItem* current = list->currentItem();
    if (current == nullptr) return;
    item.rename(utf8(current->data(Qt::UserRole).toString()), {});
    refresh();
  });
  row->addStretch();
  connect(list, &QListWidget::itemSelectionChanged, this, [list, rename, forget] {
    for (QPushButton* button : {rename, forget}) button->setEnabled(list->currentItem() != nullptr);
  });
  connect(list, &QListWidget::itemChanged, this, [item](const QListWidgetItem* changed) {
    const std::string name = utf8(changed->text().trimmed());
    if (!name.empty()) item.rename(utf8(changed->data(Qt::UserRole).toString()), name);
  });
  // What is being typed stays.
  mReads.emplace_back([list, rename, forget, item, shown = ZAN_Value()]() mutable {
    const ZAN_Value now = item.read();
    if (now == shown) return;
    shown = now;
    const QSignalBlocker blocker(list);
    list->clear();
    for (const ZAN_Value& one : now.elements()) {
      auto* entry = new QListWidgetItem(qt(one.string("name")), list);
      entry->setData(Qt::UserRole, qt(one.string("sender")));
      entry->setFlags(entry->flags() | Qt::ItemIsEditable);
    }
    for (QPushButton* button : {rename, forget}) button->setEnabled(false);
  });
  return both;
}

}  // namespace

std::unique_ptr<AgentWindow> makePreferencesWindow(const UserInterfaceSources& sources) {
  return std::make_unique<PreferencesWindow>(sources);
}

}  // namespace corvana
