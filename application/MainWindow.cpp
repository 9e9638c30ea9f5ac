#include "application/MainWindow.h"

#include <QApplication>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QListWidget>
#include <QScreen>
#include <QShortcut>
#include <QStackedWidget>
#include <QStyle>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

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

/// The rows at the side.
enum Row { kOverview, kRestore, kHistory, kSettings };

const ChangeSet kEverything{Change::queue,      Change::nextActions, Change::execution,
                            Change::statusLine, Change::progress,    Change::history,
                            Change::tree,       Change::volumes,     Change::strayFolders,
                            Change::messages,   Change::preferences, Change::survey};

}  // namespace

MainWindow::MainWindow(Household& household)
    : mHousehold(household), mSide(new QListWidget), mStack(new QStackedWidget) {
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
  addPage("go-home", "MainOverview", [this] { return made(mOverview); });
  addPage("document-open-recent", "MainRestore", [this] { return made(mRestore); });
  addPage("x-office-calendar", "MainHistory", [this] { return made(mHistory); });
  addPage("preferences-system", "MainSettings", [this] { return made(mSettings); });
  // As wide as its longest word wants it.
  int words = 0;
  for (int i = 0; i < mSide->count(); ++i)
    words = std::max(words, fontMetrics().horizontalAdvance(mSide->item(i)->text()));
  side->setFixedWidth(std::max(kSideColumns * fontMetrics().averageCharWidth(),
                               words + mSide->iconSize().width() + Look::space(14)));
  dress();
  placeOnScreen();
  QObject::connect(mSide, &QListWidget::currentRowChanged, mSide, [this](int row) {
    if (row >= 0) show(mRows[static_cast<std::size_t>(row)]());
  });
  // The current row leads somewhere, too, when its page is not the one that is shown.
  const auto back = [this](const QListWidgetItem* item) {
    if (mStack->currentWidget() == mCreate) showRow(mSide->row(item));
  };
  QObject::connect(mSide, &QListWidget::itemClicked, mSide, back);
  QObject::connect(mSide, &QListWidget::itemActivated, mSide, back);
  mSide->setCurrentRow(kOverview);
  // Wherever the keyboard's focus is, also when it is nowhere.
  const auto key = [this](int letter, auto does) {
    QObject::connect(new QShortcut(QKeySequence(Qt::CTRL | Qt::Key(letter)), this),
                     &QShortcut::activated, this, does);
  };
  key(Qt::Key_N, [this] { createBackup(); });
  key(Qt::Key_Q, [this] { close(); });
  for (int row = 0; row < mSide->count(); ++row)
    key(Qt::Key_1 + row, [this, row] { showRow(row); });

  mHousehold.changes().listen([this](ChangeSet changed) {
    if (auto* page = static_cast<Page*>(mStack->currentWidget())) page->refresh(changed);
  });
  mHousehold.onMessage = [this](const std::string& object, const ZAN_Value& userInfo) {
    heard(object, userInfo);
  };
  mHousehold.onRaise = [this](const std::string& token) { bringToFront(token); };
}

void MainWindow::addPage(const char* icon, const char* key, std::function<Page*()> page) {
  auto* item = new QListWidgetItem(mHousehold.text(key), mSide);
  item->setData(kIconRole, QString::fromLatin1(icon));
  mRows.emplace_back([page = std::move(page), title = item->text()] {
    Page* const one = page();
    one->setAccessibleName(title);
    return one;
  });
}

template <class Kind>
Kind* MainWindow::made(Kind*& page) {
  if (page != nullptr) return page;
  page = new Kind(mHousehold, *this);
  mStack->addWidget(page);
  return page;
}

void MainWindow::showRow(int row) {
  if (mSide->currentRow() != row) return mSide->setCurrentRow(row);
  mSide->item(row)->setSelected(true);
  show(mRows[static_cast<std::size_t>(row)]());
}

void MainWindow::show(Page* page) {
  mStack->setCurrentWidget(page);
  page->refresh(kEverything);
}

void MainWindow::showOverview() { showRow(kOverview); }

void MainWindow::showCreate() {
  // No row stands for it. The current one stays, since a list takes its first one else.
  mSide->clearSelection();
  show(mCreate);
}

void MainWindow::createBackup() {
  // What is half set up is not thrown away by a key.
  if (mCreate == nullptr || mStack->currentWidget() != mCreate || !mCreate->isOpen())
    made(mCreate)->begin();
  showCreate();
}

void MainWindow::changeBackup(std::int64_t reference) {
  if (made(mCreate)->change(reference)) showCreate();
}

void MainWindow::showRestore(std::int64_t reference) {
  made(mRestore)->choose(reference);
  showRow(kRestore);
}

void MainWindow::showHistory(std::int64_t reference, bool onlyFailures) {
  made(mHistory)->choose(reference, onlyFailures);
  showRow(kHistory);
}

void MainWindow::showSettings() { showRow(kSettings); }

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
    made(mHistory)->showNotices(userInfo.integer("Index"));
    showRow(kHistory);
  } else if (object == "SurveyFolderResults" || object == "CheckActionsForStartupDisk") {
    made(mOverview)->tell(qt(userInfo.string(object == "SurveyFolderResults" ? "Msg" : "N")));
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
  // What the window manager puts around it has its place there, too.
  const QSize frame(2 * style()->pixelMetric(QStyle::PM_MdiSubWindowFrameWidth),
                    2 * style()->pixelMetric(QStyle::PM_TitleBarHeight));
  resize(wanted.boundedTo(screen()->availableSize() - frame));
}

void MainWindow::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  const bool isOther = event->type() == QEvent::ApplicationPaletteChange ||
                       event->type() == QEvent::ApplicationFontChange ||
                       event->type() == QEvent::ThemeChange;
  if (isOther && !mIsDressing) dress();
}

void MainWindow::closeEvent(QCloseEvent* event) {
  event->accept();
  mHousehold.loop().quit(0);
}

}  // namespace corvana
