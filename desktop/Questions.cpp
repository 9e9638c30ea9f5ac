#include "desktop/Questions.h"

#include <QtWidgets>
#include <algorithm>
#include <utility>

#include "desktop/Texts.h"

namespace corvana {

namespace {

constexpr int kLeastColumns = 64;

}  // namespace

Questions::Questions() = default;

Questions::~Questions() = default;

void Questions::ask(const std::string& title, const std::string& text, const Buttons& buttons,
                    std::function<void(bool)> answer) {
  askWhich(title, text, {buttons.confirm}, buttons.refuse,
           [answer = std::move(answer)](std::optional<int> choice) {
             if (answer) answer(choice.has_value());
           });
}

void Questions::askWhich(const std::string& title, const std::string& text,
                         const std::vector<std::string>& choices, const std::string& refuse,
                         std::function<void(std::optional<int>)> answer) {
  auto made = std::make_unique<QMessageBox>();
  QMessageBox* box = made.get();
  box->setAttribute(Qt::WA_QuitOnClose, false);
  box->setIcon(refuse.empty() ? QMessageBox::Information : QMessageBox::Question);
  box->setTextFormat(Qt::PlainText);
  box->setText(qt(title));
  box->setInformativeText(qt(text));
  // Qt makes it as narrow as its title and wraps the text beneath.
  if (auto* grid = qobject_cast<QGridLayout*>(box->layout())) {
    const int width = kLeastColumns * box->fontMetrics().averageCharWidth();
    grid->addItem(new QSpacerItem(width, 0), grid->rowCount(), 0, 1, grid->columnCount());
  }
  std::vector<const QAbstractButton*> buttons;
  for (const std::string& choice : choices)
    buttons.push_back(box->addButton(qt(choice), QMessageBox::AcceptRole));
  if (!refuse.empty()) {
    QPushButton* button = box->addButton(qt(refuse), QMessageBox::RejectRole);
    box->setDefaultButton(button);
    box->setEscapeButton(button);
  }
  QObject::connect(box, &QMessageBox::finished, box,
                   [this, box, buttons = std::move(buttons), answer = std::move(answer)](int) {
                     const auto clicked = std::ranges::find(buttons, box->clickedButton());
                     std::optional<int> choice;
                     if (clicked != buttons.end())
                       choice = static_cast<int>(clicked - buttons.begin());
                     const auto found =
                         std::ranges::find(mOpen, box, [](const auto& one) { return one.get(); });
                     if (found != mOpen.end()) {
                       found->release()->deleteLater();
                       mOpen.erase(found);
                     }
                     answer(choice);
                   });
  mOpen.push_back(std::move(made));
  box->setModal(false);
  box->show();
  box->raise();
  box->activateWindow();
}

}  // namespace corvana
