#include "application/MainWindow.h"

#include <QApplication>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QListWidget>
#include <QScreen>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <algorithm>

#include "application/CreatePage.h"
#include "application/HistoryPage.h"
#include "application/Look.h"
#include "application/OverviewPage.h"
#include "application/RestorePage.h"
#include "application/SettingsPage.h"
#include "desktop/Texts.h"

namespace corvana {

namespace {

constexpr int kColumns = 150;  ///< of the window, in characters
constexpr int kRows = 46;
constexpr int kSideColumns = 24;
constexpr int kIconRole = Qt::UserRole;

const ChangeSet kEverything{Change::queue,      Change::nextActions, Change::execution,
                            Change::statusLine, Change::progress,    Change::history,
                            Change::tree,       Change::volumes,     Change::strayFolders,
                            Change::messages,   Change::preferences, Change::survey};

}  // namespace

MainWindow::MainWindow(Household& household)
    : mHousehold(household),
      mSide(new QListWidget),
      mStack(new QStackedWidget),
      mOverview(new OverviewPage(household, *this)),
      mRestore(new RestorePage(household, *this)),
      mHistory(new HistoryPage(household, *this)),
      mSettings(new SettingsPage(household, *this)),
      mCreate(new CreatePage(household, *this)) {
  setWindowTitle(QStringLiteral("Corvana 9"));
  setProperty("look", "page");
  setAttribute(Qt::WA_StyledBackground);
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(0);
  auto* side = new QWidget;
  side->setProperty("look", "side");
  side->setAttribute(Qt::WA_StyledBackground);
  auto* sideColumn = new QVBoxLayout(side);
  sideColumn->setContentsMargins(0, Look::space(5), 0, Look::space(4));
  sideColumn->setSpacing(Look::space(3));
  auto* name = new TextLabel(QStringLiteral("Corvana 9"), Look::Size::strong);
  name->setContentsMargins(Look::space(5), 0, Look::space(2), 0);
  sideColumn->addWidget(name);
  sideColumn->addWidget(mSide, 1);
  mSide->setProperty("look", "side-list");
  mSide->setAccessibleName(household.text("MainPages"));
  mSide->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  mSide->setFrameShape(QFrame::NoFrame);
  mSide->setIconSize(QSize(Look::space(6), Look::space(6)));
  row->addWidget(side);
  row->addWidget(mStack, 1);
  addPage(QStringLiteral("go-home"), household.text("MainOverview"), mOverview);
  addPage(QStringLiteral("document-open-recent"), household.text("MainRestore"), mRestore);
  addPage(QStringLiteral("x-office-calendar"), household.text("MainHistory"), mHistory);
  addPage(QStringLiteral("preferences-system"), household.text("MainSettings"), mSettings);
  mStack->addWidget(mCreate);
  // As wide as its longest word wants it.
  int words = 0;
  for (int i = 0; i < mSide->count(); ++i)
    words = std::max(words, fontMetrics().horizontalAdvance(mSide->item(i)->text()));
  side->setFixedWidth(std::max(kSideColumns * fontMetrics().averageCharWidth(),
                               words + mSide->iconSize().width() + Look::space(14)));
  QObject::connect(mSide, &QListWidget::currentRowChanged, mSide, [this](int row) {
    if (row >= 0) show(static_cast<Page*>(mStack->widget(row)));
  });
  mSide->setCurrentRow(0);
  dress();
  placeOnScreen();

  mHousehold.changes().listen([this](ChangeSet changed) {
    if (auto* page = static_cast<Page*>(mStack->currentWidget())) page->refresh(changed);
  });
  mHousehold.onMessage = [this](const std::string& object, const ZAN_Value& userInfo) {
    heard(object, userInfo);
  };
  mHousehold.onRaise = [this](const std::string& token) { bringToFront(token); };
}

void MainWindow::addPage(const QString& icon, const QString& title, Page* page) {
  auto* item = new QListWidgetItem(Look::icon(icon, Look::Meaning::muted), title, mSide);
  item->setData(kIconRole, icon);
  page->setAccessibleName(title);
  mStack->addWidget(page);
}

void MainWindow::show(Page* page) {
  mStack->setCurrentWidget(page);
  page->refresh(kEverything);
}

void MainWindow::showOverview() {
  mSide->setCurrentRow(0);
  show(mOverview);
}

void MainWindow::createBackup() {
  mCreate->begin();
  show(mCreate);
}

void MainWindow::changeBackup(std::int64_t reference) {
  if (mCreate->change(reference)) show(mCreate);
}

void MainWindow::showRestore(std::int64_t reference) {
  mRestore->choose(reference);
  mSide->setCurrentRow(mStack->indexOf(mRestore));
  show(mRestore);
}

void MainWindow::showHistory(std::int64_t reference, bool onlyFailures) {
  mHistory->choose(reference, onlyFailures);
  mSide->setCurrentRow(mStack->indexOf(mHistory));
  show(mHistory);
}

void MainWindow::showSettings() { mSide->setCurrentRow(mStack->indexOf(mSettings)); }

void MainWindow::bringToFront(const std::string& activationToken) {
  // Qt looks there when a window is to come to the front.
  if (!activationToken.empty()) qputenv("XDG_ACTIVATION_TOKEN", activationToken.c_str());
  setWindowState(windowState() & ~Qt::WindowMinimized);
  QWidget::show();
  raise();
  activateWindow();
}

void MainWindow::heard(const std::string& object, const ZAN_Value& userInfo) {
  if (object == "ShowRestore") {
    showRestore(0);
  } else if (object == "ShowLatestActions") {
    showHistory(0, false);
  } else if (object == "ShowLatestActionsWithErrors") {
    showHistory(0, true);
  } else if (object == "ShowLatestNotifications") {
    mHistory->showNotices(userInfo.integer("Index"));
    mSide->setCurrentRow(mStack->indexOf(mHistory));
    show(mHistory);
  } else if (object == "SurveyFolderResults" || object == "CheckActionsForStartupDisk") {
    mOverview->tell(qt(userInfo.string(object == "SurveyFolderResults" ? "Msg" : "N")));
    showOverview();
  } else {
    return;
  }
  bringToFront({});
}

void MainWindow::dress() {
  mIsDressing = true;
  setStyleSheet(Look::styleSheet());
  for (int row = 0; row < mSide->count(); ++row) {
    QListWidgetItem* item = mSide->item(row);
    item->setIcon(Look::icon(item->data(kIconRole).toString(), Look::Meaning::muted));
  }
  mIsDressing = false;
}

void MainWindow::placeOnScreen() {
  const QFontMetrics metrics(font());
  const QSize wanted(kColumns * metrics.averageCharWidth(), kRows * metrics.lineSpacing());
  const QSize room = screen()->availableSize();
  resize(wanted.boundedTo(room));
}

void MainWindow::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  const bool isOther = event->type() == QEvent::ApplicationPaletteChange ||
                       event->type() == QEvent::ApplicationFontChange ||
                       event->type() == QEvent::ThemeChange;
  if (isOther && !mIsDressing) dress();
}

void MainWindow::keyPressEvent(QKeyEvent* event) {
  const bool isControl = event->modifiers() == Qt::ControlModifier;
  if (isControl && event->key() == Qt::Key_N) return createBackup();
  if (isControl && event->key() == Qt::Key_Q) {
    close();
    return;
  }
  const int page = event->key() - Qt::Key_1;
  if (isControl && page >= 0 && page < mSide->count()) {
    mSide->setCurrentRow(page);
    return show(static_cast<Page*>(mStack->widget(page)));
  }
  QWidget::keyPressEvent(event);
}

void MainWindow::closeEvent(QCloseEvent* event) {
  event->accept();
  mHousehold.loop().quit(0);
}

}  // namespace corvana
