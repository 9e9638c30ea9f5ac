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
  auto made = std::make_unique<QMessageBox>();
  QMessageBox* box = made.get();
  box->setAttribute(Qt::WA_QuitOnClose, false);
  box->setIcon(buttons.refuse.empty() ? QMessageBox::Information : QMessageBox::Question);
  box->setTextFormat(Qt::PlainText);
  box->setText(qt(title));
  box->setInformativeText(qt(text));
  // Qt makes it as narrow as its title and wraps the text beneath.
  if (auto* grid = qobject_cast<QGridLayout*>(box->layout())) {
    const int width = kLeastColumns * box->fontMetrics().averageCharWidth();
    grid->addItem(new QSpacerItem(width, 0), grid->rowCount(), 0, 1, grid->columnCount());
  }
  const QPushButton* confirm = box->addButton(qt(buttons.confirm), QMessageBox::AcceptRole);
  if (!buttons.refuse.empty()) {
    QPushButton* refuse = box->addButton(qt(buttons.refuse), QMessageBox::RejectRole);
    box->setDefaultButton(refuse);
    box->setEscapeButton(refuse);
  }
  QObject::connect(
      box, &QMessageBox::finished, box, [this, box, confirm, answer = std::move(answer)](int) {
        const bool confirmed = box->clickedButton() == confirm;
        const auto found = std::ranges::find(mOpen, box, [](const auto& one) { return one.get(); });
        if (found != mOpen.end()) {
          found->release()->deleteLater();
          mOpen.erase(found);
        }
        if (answer) answer(confirmed);
      });
  mOpen.push_back(std::move(made));
  box->setModal(false);
  box->show();
  box->raise();
  box->activateWindow();
}

}  // namespace corvana
