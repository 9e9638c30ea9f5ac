#include "desktop/X11Input.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>
#include <algorithm>

// After Qt's headers, which its macros would break.
#include <X11/Xlib.h>
#include <X11/extensions/scrnsaver.h>

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
};

bool X11Input::displayAnswers() {
  return qEnvironmentVariableIsSet("DISPLAY") && Connection::open() != nullptr;
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
  // Nothing was pressed, released or moved since.
  if (!first && mIdle && *mIdle > std::chrono::duration<double>(since).count()) return;
  mKeys = mConnection->keys();
  mMask = mConnection->mask();
  mPointer = QCursor::pos();
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

}  // namespace corvana
