#include "desktop/QtUserInterface.h"

#include <algorithm>
#include <utility>

#include "core/record/Records.h"
#include "core/record/SchedulerCommands.h"
#include "desktop/FloatingWidget.h"
#include "desktop/MessageWindows.h"
#include "desktop/ModelMenu.h"
#include "desktop/Notifier.h"
#include "desktop/PictureStore.h"
#include "desktop/Questions.h"
#include "desktop/ScreenInput.h"
#include "desktop/StatusTray.h"
#include "desktop/WindowParts.h"
#include "desktop/WindowRegistry.h"
#include "desktop/X11.h"
#include "ui/FloatingIcon.h"
#include "ui/StatusItem.h"
#include "ui/StatusMenu.h"
#include "ui/UserInterfaceSources.h"

namespace corvana {

namespace {

constexpr const char* kFloatingPlace = "FloatingIconPlace";
constexpr double kGap = 8;
constexpr double kFallbackSeconds = 5.0;

std::string resourcesOf(const Machine& machine) {
  return machine.bundlePath() + "/Contents/Resources";
}

}  // namespace

class QtUserInterface::Private {
 public:
  explicit Private(const Desktop::Services& given)
      : services(given),
        pictures(resourcesOf(given.machine)),
        messages(screen),
        notifier(resourcesOf(given.machine) + "/" + PictureStore::kLogo + "@2x.png"),
        windows(given.runLoop) {
    QGuiApplication::setWindowIcon(pictures.icon(std::string(PictureStore::kLogo)));
    messages.onClosedByUser = [this] {
      if (sources != nullptr) sources->commands.messageClosedByUser();
    };
    messages.onAnnounceMoved = [this](const Point& place) {
      if (sources != nullptr) sources->commands.setAnnouncePosition(place);
    };
    notifier.onActivated = [this] {
      if (sources != nullptr) sources->commands.userNotificationActivated();
    };
  }

  std::string text(std::string_view key) const {
    return sources == nullptr ? std::string() : sources->records.texts.text(key);
  }
  ModelMenu::Words words() const {
    return {qt(text("ReadingFolderMenu")), qt(text("EmptyFolderMenu")), qt(text("OpenFolderMenu"))};
  }
  int style() const {
    return sources == nullptr ? 0 : sources->records.preferences.mShowIconMenuType;
  }

  void attach(const UserInterfaceSources& given);
  void showPicture(const StatusPicture& wanted);
  void drawMenu();
  void drawFloatingMenu(const QPoint& place);
  void refreshFloatingIcon();
  void showFloatingIcon();
  void rememberFloatingPlace();
  void placeFloatingIcon();
  void changed();
  void arrange();
  void tellThatThereIsNoPanel();
  MessageWindows::Look messageLook() const;

  Desktop::Services services;
  PictureStore pictures;
  X11Screen screen;
  MessageWindows messages;
  Notifier notifier;
  WindowRegistry windows;
  std::unique_ptr<const UserInterfaceSources> sources;
  std::unique_ptr<StatusMenu> menuModel;
  std::unique_ptr<ModelMenu> menu;
  std::unique_ptr<ModelMenu> floatingMenu;
  std::unique_ptr<StatusTray> tray;
  std::unique_ptr<Questions> questions = std::make_unique<Questions>();
  std::unique_ptr<FloatingIconView> floatingIcon;
  double floatingOpacity = 80;
  bool statusItem = false;
  bool willChange = false;
  bool noPanel = false;  ///< that takes the status icon
};

void QtUserInterface::Private::attach(const UserInterfaceSources& given) {
  auto known = std::make_unique<UserInterfaceSources>(given);
  known->lacking = [this, other = given.lacking](Ability ability) {
    if (ability == Ability::statusItem && noPanel && !tray->isTaken()) return text("LackingPanel");
    if (ability == Ability::notices && !notifier.isAnswered()) return text("LackingNotices");
    if (ability == Ability::floatOnTop && !ScreenPlace::isOurs()) return text("LackingPlaces");
    return other(ability);
  };
  sources = std::move(known);
  menuModel = std::make_unique<StatusMenu>(*sources);
  menu = std::make_unique<ModelMenu>(services.runLoop, words());
  floatingMenu = std::make_unique<ModelMenu>(services.runLoop, words());
  tray = std::make_unique<StatusTray>(services.runLoop, screen, *menu);
  QObject::connect(menu.get(), &QMenu::aboutToShow, menu.get(), [this] {
    sources->commands.menuWillOpen();
    drawMenu();
  });
  tray->onActivated = [this] { sources->commands.showOverview(); };
  tray->onNoPanel = [this] { tellThatThereIsNoPanel(); };
  windows.setSources(sources.get());
  if (statusItem) tray->show();
}

void QtUserInterface::Private::tellThatThereIsNoPanel() {
  noPanel = true;
  services.log.write("No panel of this desktop takes the status icon");
  // Whoever has the main application open sees how everything stands, and hears it another time.
  if (sources->records.channel.isMainAppLaunched()) return;
  // Once for this user, not after each restart.
  constexpr const char* kSaid = "SchedulerPrefNoPanelWasSaid";
  if (sources->records.preferences.prefForKey(kSaid).integerValue() != 0) return;
  sources->records.preferences.setPref(kSaid, 1);
  sources->records.preferences.savePrefs();
  sources->records.messages.showMessage(text("NoPanelTitle"), text("NoPanelText"), 20.0, true);
}

void QtUserInterface::Private::showPicture(const StatusPicture& wanted) {
  if (tray != nullptr && statusItem) tray->setIcon(pictures.icon(wanted));
}

void QtUserInterface::Private::drawMenu() { menu->setItems(menuModel->items()); }

void QtUserInterface::Private::drawFloatingMenu(const QPoint& place) {
  if (menuModel == nullptr) return;
  floatingMenu->setItems(menuModel->floatingItems());
  floatingMenu->popup(place);
}

void QtUserInterface::Private::showFloatingIcon() {
  if (sources == nullptr) return;
  if (floatingIcon == nullptr) {
    floatingIcon = std::make_unique<FloatingIconView>(
        screen.hasCompositor(), pictures.icon(std::string(PictureStore::kLogo)));
    floatingIcon->onMenu = [this](const QPoint& place) { drawFloatingMenu(place); };
    floatingIcon->onMoved = [this] { rememberFloatingPlace(); };
    floatingIcon->onDoubleClick = [this] { sources->commands.showWindow(Window::nextActions); };
    floatingIcon->setToolTip(plainToolTip(tray->toolTip()));
  }
  floatingIcon->setOpacity(floatingOpacity / 100);
  refreshFloatingIcon();
  if (!floatingIcon->isVisible()) {
    placeFloatingIcon();
    floatingIcon->show();
  }
  // It is not to come over a menu that is open.
  if (QApplication::activePopupWidget() == nullptr) floatingIcon->raise();
}

/// Its right upper corner, since it grows to the left and down.
void QtUserInterface::Private::rememberFloatingPlace() {
  const Rect place = ScreenPlace::of(*floatingIcon);
  sources->records.platform.machine.setUserDefault(
      kFloatingPlace, ZAN_Value::array({place.x + place.width, place.y + place.height}));
}

/// Where the user has put it, as far as that is on the screen; else at the upper right.
void QtUserInterface::Private::placeFloatingIcon() {
  const Rect visible = ScreenPlace::visibleFrame();
  const ZAN_Value stored = sources->records.platform.machine.userDefault(kFloatingPlace);
  double right = visible.x + visible.width - kGap;
  double top = visible.y + visible.height - 3 * kGap;
  if (stored.size() == 2) {
    right = stored.at(0).doubleValue();
    top = stored.at(1).doubleValue();
  }
  const double width = floatingIcon->width();
  const double height = floatingIcon->height();
  const Rect all = ScreenPlace::mainScreen();
  ScreenPlace::move(*floatingIcon, {std::clamp(right - width, all.x, all.x + all.width - width),
                                    std::clamp(top - height, all.y, all.y + all.height - height)});
}

void QtUserInterface::Private::refreshFloatingIcon() {
  if (floatingIcon == nullptr || sources == nullptr) return;
  QStringList lines;
  const int count = std::max(0, sources->records.preferences.mPrefFloatingIconNbLines);
  for (const std::string& line : floatingIconLines(*sources, std::size_t(count))) {
    lines << qt(line);
  }
  floatingIcon->setLines(lines);
}

/// However many changes come in one turn of the loop, what is visible is drawn once.
void QtUserInterface::Private::changed() {
  windows.refresh();
  if (std::exchange(willChange, true)) return;
  services.runLoop.performAfter(0, [this] {
    willChange = false;
    if (sources == nullptr) return;
    drawMenu();
    refreshFloatingIcon();
  });
}

MessageWindows::Look QtUserInterface::Private::messageLook() const {
  MessageWindows::Look look;
  const QImage logo = pictures.image(PictureStore::kLogo, 2);
  look.view.icon = logo;
  if (sources == nullptr) return look;
  const Preferences& preferences = sources->records.preferences;
  look.view = MessageView::lookOf(preferences, logo);
  look.position = preferences.mShowMessagePosition;
  look.closeName = text("CloseButton");
  return look;
}

void QtUserInterface::Private::arrange() {
  if (sources == nullptr) return;
  const Preferences& preferences = sources->records.preferences;
  messages.arrange(preferences.mShowMessagePosition, preferences.mShowMiniProgressPosition,
                   preferences.mPrefStackWindows != 0);
}

QtUserInterface::QtUserInterface(const Desktop::Services& services)
    : mPrivate(std::make_unique<Private>(services)) {}

QtUserInterface::~QtUserInterface() = default;

void QtUserInterface::attach(const UserInterfaceSources& sources) { mPrivate->attach(sources); }

void QtUserInterface::end() {
  Private& own = *mPrivate;
  own.questions.reset();
  own.messages.close();
  own.messages.closeAnnounce();
  own.floatingIcon.reset();
  own.windows.setSources(nullptr);
  own.tray.reset();
  own.floatingMenu.reset();
  own.menu.reset();
  own.menuModel.reset();
  own.sources.reset();
}

void QtUserInterface::openMessageWindow(const MessageWindow& message) {
  mPrivate->messages.open(message, mPrivate->messageLook());
  mPrivate->arrange();
}

void QtUserInterface::closeMessageWindow() {
  mPrivate->messages.close();
  mPrivate->arrange();
}

void QtUserInterface::paintNow() { mPrivate->messages.paintNow(); }

void QtUserInterface::openAnnounceWindow(const std::string& title) {
  mPrivate->messages.openAnnounce(title);
  mPrivate->arrange();
}

void QtUserInterface::closeAnnounceWindow() { mPrivate->messages.closeAnnounce(); }

void QtUserInterface::setAnnounceProgress(double value, const std::string& text) {
  mPrivate->messages.setAnnounceProgress(value, text);
}

void QtUserInterface::deliverNotification(const std::string& title, const std::string& text,
                                          const std::string& button) {
  mPrivate->notifier.deliver(title, text, button, [own = mPrivate.get(), text] {
    // Nobody takes notices here; what was to be told is told all the same.
    if (own->sources != nullptr) {
      own->sources->records.messages.showMessage(text, {}, kFallbackSeconds, true);
    }
  });
}

void QtUserInterface::createStatusItem() {
  mPrivate->statusItem = true;
  if (mPrivate->tray != nullptr) mPrivate->tray->show();
}

void QtUserInterface::removeStatusItem() {
  mPrivate->statusItem = false;
  if (mPrivate->tray != nullptr) mPrivate->tray->hide();
}

bool QtUserInterface::hasStatusItem() const { return mPrivate->statusItem; }

void QtUserInterface::setStatusIcon(StatusIcon icon, int context) {
  mPrivate->showPicture(StatusPicture::of(icon, context, mPrivate->style()));
}

void QtUserInterface::setStatusCountDown(int minutes, int context) {
  mPrivate->showPicture(StatusPicture::ofCountDown(minutes, context, mPrivate->style()));
}

void QtUserInterface::setStatusTitle(const std::string& /*text*/) { mPrivate->changed(); }

void QtUserInterface::setToolTip(const std::string& text) {
  if (mPrivate->tray != nullptr) mPrivate->tray->setToolTip(qt(text));
  if (mPrivate->floatingIcon != nullptr) mPrivate->floatingIcon->setToolTip(plainToolTip(qt(text)));
}

void QtUserInterface::changed(ChangeSet what) {
  // What changes often, and the long lists do not change with it.
  const ChangeSet states{Change::progress, Change::statusLine, Change::survey,
                         Change::strayFolders};
  if (!what.without(states).empty()) return mPrivate->changed();
  WindowRegistry& windows = mPrivate->windows;
  if (what.hasAnyOf({Change::progress, Change::statusLine})) windows.refreshState(Window::status);
  if (what.has(Change::progress)) windows.refreshState(Window::queue);
  if (what.has(Change::survey)) windows.refreshState(Window::executionSurvey);
  if (what.has(Change::strayFolders)) windows.refreshState(Window::volumesFolderError);
}

void QtUserInterface::rearrangeMessageWindows() {
  if (mPrivate->messages.isOpen()) mPrivate->messages.setLook(mPrivate->messageLook());
  mPrivate->arrange();
}

void QtUserInterface::popUpFloatingMenu() { mPrivate->drawFloatingMenu(QCursor::pos()); }

void QtUserInterface::showWindow(Window window) {
  if (window == Window::floatingIcon) {
    mPrivate->showFloatingIcon();
  } else {
    mPrivate->windows.show(window);
  }
}

void QtUserInterface::showWindowQuietly(Window window) {
  if (window == Window::floatingIcon) {
    mPrivate->showFloatingIcon();
  } else {
    mPrivate->windows.showQuietly(window);
  }
}

void QtUserInterface::hideWindow(Window window) {
  if (window == Window::floatingIcon) {
    mPrivate->floatingIcon.reset();
  } else {
    mPrivate->windows.hide(window);
  }
}

bool QtUserInterface::isWindowVisible(Window window) const {
  if (window == Window::floatingIcon) return mPrivate->floatingIcon != nullptr;
  return mPrivate->windows.isVisible(window);
}

void QtUserInterface::setWindowText(Window window, const std::string& text) {
  mPrivate->windows.setText(window, text);
}

void QtUserInterface::bringWindowsToFront() {
  // Whoever starts the agent again wants to see it.
  if (mPrivate->windows.anyVisible()) {
    mPrivate->windows.bringToFront();
  } else {
    mPrivate->windows.show(Window::status);
  }
}

void QtUserInterface::setFloatingIconOpacity(double percent) {
  mPrivate->floatingOpacity = percent;
  if (mPrivate->floatingIcon != nullptr) mPrivate->floatingIcon->setOpacity(percent / 100);
}

void QtUserInterface::setActionExecuted(std::int64_t sizeCopied, int progress,
                                        std::int64_t errors) {
  if (mPrivate->floatingIcon != nullptr) {
    mPrivate->floatingIcon->setProgress(sizeCopied < 0 ? -1 : progress, errors != 0);
  }
}

std::map<std::string, std::string> QtUserInterface::desktop() const {
  std::map<std::string, std::string> desktop;
  for (const char* name : kDesktopVariables) {
    if (qEnvironmentVariableIsSet(name)) desktop[name] = qgetenv(name).toStdString();
  }
  return desktop;
}

void QtUserInterface::ask(Window window, const std::string& title, const std::string& text,
                          std::function<void(bool)> answer) {
  if (mPrivate->questions == nullptr) return;
  Questions::Buttons buttons{mPrivate->text("YesButton"), mPrivate->text("NoButton")};
  if (window == Window::status) {
    buttons = {mPrivate->text("QuitButton"), mPrivate->text("CancelButton")};
  } else if (window == Window::volumesFolderError || window == Window::errorSummary) {
    buttons = {mPrivate->text("DeleteButton"), mPrivate->text("CancelButton")};
  } else if (window == Window::startupDisk) {
    buttons = {mPrivate->text("ButtonUseThisDisk"), mPrivate->text("ButtonLater")};
  } else if (window == Window::preferences) {
    buttons = {mPrivate->text("ButtonPair"), mPrivate->text("ButtonRefuse")};
  }
  mPrivate->questions->ask(title, text, buttons, std::move(answer));
}

void QtUserInterface::askWhich(const std::string& title, const std::string& text,
                               const std::array<std::string, 2>& choices,
                               std::function<void(std::optional<int>)> answer) {
  if (mPrivate->questions == nullptr) return;
  mPrivate->questions->askWhich(title, text, {choices[0], choices[1]},
                                mPrivate->text("CancelButton"), std::move(answer));
}

void QtUserInterface::alert(const std::string& title, const std::string& text,
                            const std::string& button) {
  if (mPrivate->questions != nullptr) mPrivate->questions->ask(title, text, {button, {}}, {});
}

}  // namespace corvana
