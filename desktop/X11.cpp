#include "desktop/X11.h"

#include <QtWidgets>
#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

// After Qt's headers, which its macros would break.
#include <X11/Xlib.h>
#include <X11/extensions/scrnsaver.h>
#include <X11/extensions/sync.h>

namespace corvana {

namespace {

/// What one look has seen holds for the whole call of the timer, and the tick in it.
constexpr std::chrono::milliseconds kSameLook{50};
/// Codes of the X server are those of the kernel and eight more.
constexpr std::size_t kBytesBefore = 1;

}  // namespace

class X11Input::Connection {
 public:
  static std::unique_ptr<Connection> open() {
    Display* display = XOpenDisplay(nullptr);
    return display == nullptr ? nullptr : std::make_unique<Connection>(display);
  }
  explicit Connection(Display* display) : mDisplay(display) {
    // A server that ends is told to Qt too, which ends the program; this connection keeps quiet.
    XSetIOErrorExitHandler(
        display, [](Display*, void* dead) { *static_cast<bool*>(dead) = true; }, &mDead);
    int event = 0;
    int error = 0;
    if (XScreenSaverQueryExtension(display, &event, &error) != 0) mInfo = XScreenSaverAllocInfo();
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() {
    if (mInfo != nullptr) XFree(mInfo);
    if (!mDead) XCloseDisplay(mDisplay);
  }

  std::optional<double> idle() {
    if (mDead || mInfo == nullptr) return std::nullopt;
    if (XScreenSaverQueryInfo(mDisplay, DefaultRootWindow(mDisplay), mInfo) == 0) {
      return std::nullopt;
    }
    return static_cast<double>(mInfo->idle) / 1000;
  }

  KeyMap keys() {
    char keys[32] = {};
    if (!mDead) XQueryKeymap(mDisplay, keys);
    KeyMap map{};
    std::copy_n(keys + kBytesBefore, map.size(), map.begin());
    return map;
  }

  /// Has the server tell each time that its clock of idleness falls below so many milliseconds.
  bool watchRest(int milliseconds) {
    int error = 0;
    int major = 0;
    int minor = 0;
    if (mDead || XSyncQueryExtension(mDisplay, &mFirstEvent, &error) == 0 ||
        XSyncInitialize(mDisplay, &major, &minor) == 0) {
      return false;
    }
    int count = 0;
    XSyncSystemCounter* const counters = XSyncListSystemCounters(mDisplay, &count);
    XSyncSystemCounter* const end = counters + count;
    const XSyncSystemCounter* const idle = std::find_if(
        counters, end,
        [](const XSyncSystemCounter& one) { return std::string_view(one.name) == "IDLETIME"; });
    const bool isThere = idle != end;
    if (isThere) {
      XSyncAlarmAttributes wanted{};
      wanted.trigger.counter = idle->counter;
      wanted.trigger.value_type = XSyncAbsolute;
      wanted.trigger.test_type = XSyncNegativeTransition;
      XSyncIntToValue(&wanted.trigger.wait_value, milliseconds);
      XSyncIntToValue(&wanted.delta, 0);
      wanted.events = True;
      mAlarm = XSyncCreateAlarm(mDisplay,
                                XSyncCACounter | XSyncCAValueType | XSyncCAValue | XSyncCATestType |
                                    XSyncCADelta | XSyncCAEvents,
                                &wanted);
      XFlush(mDisplay);
    }
    if (counters != nullptr) XSyncFreeSystemCounterList(counters);
    return isThere;
  }
  void endWatching() {
    if (!mDead && mAlarm != None) XSyncDestroyAlarm(mDisplay, mAlarm);
    mAlarm = None;
  }

  int descriptor() const { return ConnectionNumber(mDisplay); }
  bool isDead() const { return mDead; }
  /// Whether an answer of the server has brought events along.
  bool hasEvents() const { return !mDead && XEventsQueued(mDisplay, QueuedAlready) > 0; }
  /// Whether the rest was over since the last call.
  bool tookEndOfRest() {
    bool isOver = false;
    while (!mDead && XPending(mDisplay) > 0) {
      XEvent event;
      XNextEvent(mDisplay, &event);
      isOver = isOver || event.type == mFirstEvent + XSyncAlarmNotify;
    }
    return isOver;
  }

  unsigned mask() {
    ::Window root = 0;
    ::Window child = 0;
    int x = 0;
    int y = 0;
    unsigned mask = 0;
    if (!mDead) {
      XQueryPointer(mDisplay, DefaultRootWindow(mDisplay), &root, &child, &x, &y, &x, &y, &mask);
    }
    return mask;
  }

 private:
  Display* mDisplay;
  XScreenSaverInfo* mInfo = nullptr;
  bool mDead = false;
  int mFirstEvent = 0;
  XSyncAlarm mAlarm = None;
};

std::shared_ptr<void> X11Input::answeringDisplay() {
  if (!qEnvironmentVariableIsSet("DISPLAY")) return nullptr;
  return Connection::open();
}

std::unique_ptr<Input> X11Input::make() {
  if (QGuiApplication::platformName() != QStringLiteral("xcb")) return nullptr;
  if (qEnvironmentVariableIsSet("WAYLAND_DISPLAY")) return nullptr;
  auto connection = Connection::open();
  if (connection == nullptr) return nullptr;
  return std::unique_ptr<Input>(new X11Input(std::move(connection)));
}

X11Input::X11Input(std::unique_ptr<Connection> connection) : mConnection(std::move(connection)) {}

X11Input::~X11Input() = default;

void X11Input::look() {
  const auto now = std::chrono::steady_clock::now();
  const auto since = now - mLooked;
  if (since < kSameLook) return;
  const bool first = mLooked == std::chrono::steady_clock::time_point{};
  mLooked = now;
  mIdle = mConnection->idle();
  if (mEvents != nullptr && mConnection->hasEvents()) {
    QMetaObject::invokeMethod(
        mEvents.get(), [this] { takeEvents(); }, Qt::QueuedConnection);
  }
  // Nothing was pressed, released or moved since.
  if (!first && mIdle && *mIdle > std::chrono::duration<double>(since).count()) return;
  mKeys = mConnection->keys();
  mMask = mConnection->mask();
  mPointer = QCursor::pos();
}

bool X11Input::observe(std::function<void()> used) {
  mEvents.reset();
  mConnection->endWatching();
  mUsed = std::move(used);
  if (!mUsed) return true;
  if (!mConnection->watchRest(static_cast<int>(kRest * 1000))) return false;
  mEvents = std::make_unique<QSocketNotifier>(mConnection->descriptor(), QSocketNotifier::Read);
  QObject::connect(mEvents.get(), &QSocketNotifier::activated, mEvents.get(),
                   [this] { takeEvents(); });
  // Another screen is as good as a use: what floats finds its place anew.
  if (const QScreen* screen = QGuiApplication::primaryScreen()) {
    const auto changed = [this] {
      if (mUsed) mUsed();
    };
    QObject::connect(screen, &QScreen::geometryChanged, mEvents.get(), changed);
    QObject::connect(screen, &QScreen::availableGeometryChanged, mEvents.get(), changed);
  }
  return true;
}

void X11Input::takeEvents() {
  const bool isOver = mConnection->tookEndOfRest();
  if (mConnection->isDead()) mEvents->setEnabled(false);
  if (!isOver) return;
  // What was seen during the rest holds no longer.
  mLooked = {};
  const auto used = mUsed;
  if (used) used();
}

KeyMap X11Input::keyMap() {
  look();
  return mKeys;
}

bool X11Input::optionKeyDown() {
  look();
  return (mMask & Mod1Mask) != 0;
}

bool X11Input::mouseButtonDown() {
  look();
  return (mMask & (Button1Mask | Button2Mask | Button3Mask)) != 0;
}

std::optional<Point> X11Input::pointer() {
  const QScreen* screen = QGuiApplication::primaryScreen();
  if (screen == nullptr) return std::nullopt;
  look();
  return Point{double(mPointer.x()), double(screen->geometry().bottom() - mPointer.y())};
}

std::optional<double> X11Input::idleSeconds() {
  look();
  return mIdle;
}

class X11Screen::Connection {
 public:
  explicit Connection(Display* display) : mDisplay(display) {
    XSetIOErrorExitHandler(
        display, [](Display*, void* self) { static_cast<Connection*>(self)->died(); }, this);
    const std::string number = std::to_string(DefaultScreen(display));
    mTray = XInternAtom(display, ("_NET_SYSTEM_TRAY_S" + number).c_str(), False);
    mCompositor = XInternAtom(display, ("_NET_WM_CM_S" + number).c_str(), False);
    mManager = XInternAtom(display, "MANAGER", False);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() {
    mNotifier.reset();
    if (!mDead) XCloseDisplay(mDisplay);
  }

  bool hasTray() const { return !mDead && XGetSelectionOwner(mDisplay, mTray) != None; }
  bool hasCompositor() const { return !mDead && XGetSelectionOwner(mDisplay, mCompositor) != None; }

  void whenTrayComes(std::function<void()> came) {
    if (mDead) return;
    mCame = std::move(came);
    // Whoever takes over the tray says so to all that listen at the root window.
    XSelectInput(mDisplay, DefaultRootWindow(mDisplay), mCame ? StructureNotifyMask : NoEventMask);
    XFlush(mDisplay);
    mNotifier.reset();
    if (!mCame) return;
    mNotifier =
        std::make_unique<QSocketNotifier>(ConnectionNumber(mDisplay), QSocketNotifier::Read);
    QObject::connect(mNotifier.get(), &QSocketNotifier::activated, mNotifier.get(),
                     [this] { read(); });
  }

 private:
  void read() {
    bool came = false;
    while (!mDead && XPending(mDisplay) > 0) {
      XEvent event;
      XNextEvent(mDisplay, &event);
      came = came || (event.type == ClientMessage && event.xclient.message_type == mManager &&
                      static_cast<Atom>(event.xclient.data.l[1]) == mTray);
    }
    if (mDead && mNotifier != nullptr) mNotifier->setEnabled(false);
    // It may end the listening.
    const auto call = mCame;
    if (came && call) call();
  }
  void died() { mDead = true; }

  Display* mDisplay;
  Atom mTray = None;
  Atom mCompositor = None;
  Atom mManager = None;
  std::function<void()> mCame;
  std::unique_ptr<QSocketNotifier> mNotifier;
  bool mDead = false;
};

X11Screen::X11Screen() {
  if (QGuiApplication::platformName() != QStringLiteral("xcb")) return;
  if (Display* display = XOpenDisplay(nullptr)) mConnection = std::make_unique<Connection>(display);
}

X11Screen::~X11Screen() = default;

bool X11Screen::hasCompositor() const {
  // Where there is no X server, the desktop composes by itself.
  return QGuiApplication::platformName() != QStringLiteral("xcb") ||
         (mConnection != nullptr && mConnection->hasCompositor());
}

bool X11Screen::hasTray() const { return mConnection != nullptr && mConnection->hasTray(); }

void X11Screen::whenTrayComes(std::function<void()> came) {
  if (mConnection != nullptr) mConnection->whenTrayComes(std::move(came));
}

}  // namespace corvana
