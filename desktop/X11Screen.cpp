#include "desktop/X11Screen.h"

#include <QGuiApplication>
#include <QSocketNotifier>
#include <string>
#include <utility>

// After Qt's headers, which its macros would break.
#include <X11/Xlib.h>

namespace corvana {

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
