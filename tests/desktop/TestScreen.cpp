#include "tests/desktop/TestScreen.h"

#include <array>
#include <vector>

// After Qt's headers, which its macros would break.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

namespace corvana {

namespace {

constexpr long kDock = 0;
constexpr long kLongestTitle = 1024;

}  // namespace

class TestScreen::Connection {
 public:
  explicit Connection(const QByteArray& name) : mDisplay(XOpenDisplay(name.constData())) {
    // A window may go while it is looked at.
    XSetErrorHandler([](Display*, XErrorEvent*) { return 0; });
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() {
    if (mDisplay != nullptr) XCloseDisplay(mDisplay);
  }

  Display* display() const { return mDisplay; }
  ::Window root() const { return DefaultRootWindow(mDisplay); }
  Atom atom(const char* name) const { return XInternAtom(mDisplay, name, False); }

  QString title(::Window window) const {
    Atom type = None;
    int format = 0;
    unsigned long count = 0;
    unsigned long after = 0;
    unsigned char* text = nullptr;
    XGetWindowProperty(mDisplay, window, atom("_NET_WM_NAME"), 0, kLongestTitle, False,
                       atom("UTF8_STRING"), &type, &format, &count, &after, &text);
    if (text == nullptr) return {};
    const QString title = QString::fromUtf8(reinterpret_cast<char*>(text), qsizetype(count));
    XFree(text);
    return title;
  }

  ::Window tray = None;
  ::Window icon = None;

 private:
  Display* mDisplay;
};

TestScreen::TestScreen(const QByteArray& display)
    : mConnection(std::make_unique<Connection>(display)) {}

TestScreen::~TestScreen() = default;

QList<TestScreen::Shown> TestScreen::windows() const {
  const Connection& x = *mConnection;
  ::Window root = None;
  ::Window parent = None;
  ::Window* children = nullptr;
  unsigned count = 0;
  QList<Shown> shown;
  if (XQueryTree(x.display(), x.root(), &root, &parent, &children, &count) == 0) return shown;
  for (unsigned i = 0; i < count; ++i) {
    XWindowAttributes all{};
    if (XGetWindowAttributes(x.display(), children[i], &all) == 0) continue;
    if (all.map_state != IsViewable) continue;
    shown.push_back({x.title(children[i]), QRect(all.x, all.y, all.width, all.height)});
  }
  if (children != nullptr) XFree(children);
  return shown;
}

TestScreen::Shown TestScreen::window(const QString& title) const {
  Shown found;
  for (const Shown& one : windows()) {
    if (one.title.startsWith(title)) found = one;
  }
  return found;
}

QRect TestScreen::bounds() const {
  const Connection& x = *mConnection;
  const int screen = DefaultScreen(x.display());
  return {0, 0, DisplayWidth(x.display(), screen), DisplayHeight(x.display(), screen)};
}

QImage TestScreen::picture(const QRect& place) const {
  const Connection& x = *mConnection;
  const QRect seen = place & bounds();
  if (seen.isEmpty()) return {};
  XImage* read = XGetImage(x.display(), x.root(), seen.x(), seen.y(), unsigned(seen.width()),
                           unsigned(seen.height()), AllPlanes, ZPixmap);
  if (read == nullptr) return {};
  const QImage picture = QImage(reinterpret_cast<uchar*>(read->data), read->width, read->height,
                                read->bytes_per_line, QImage::Format_RGB32)
                             .copy();
  XDestroyImage(read);
  return picture;
}

void TestScreen::setWorkArea(const QRect& area) {
  const Connection& x = *mConnection;
  const std::array<long, 4> numbers{area.x(), area.y(), area.width(), area.height()};
  XChangeProperty(x.display(), x.root(), x.atom("_NET_WORKAREA"), XA_CARDINAL, 32, PropModeReplace,
                  reinterpret_cast<const unsigned char*>(numbers.data()), numbers.size());
  XSync(x.display(), False);
}

void TestScreen::becomeTray(const QRect& place) {
  Connection& x = *mConnection;
  x.tray = XCreateSimpleWindow(x.display(), x.root(), place.x(), place.y(), unsigned(place.width()),
                               unsigned(place.height()), 0, 0, 0x808080);
  XMapWindow(x.display(), x.tray);
  const Atom selection = x.atom("_NET_SYSTEM_TRAY_S0");
  XSetSelectionOwner(x.display(), selection, x.tray, CurrentTime);
  XEvent event{};
  event.xclient.type = ClientMessage;
  event.xclient.window = x.root();
  event.xclient.message_type = x.atom("MANAGER");
  event.xclient.format = 32;
  event.xclient.data.l[0] = CurrentTime;
  event.xclient.data.l[1] = long(selection);
  event.xclient.data.l[2] = long(x.tray);
  XSendEvent(x.display(), x.root(), False, StructureNotifyMask, &event);
  XSync(x.display(), False);
}

bool TestScreen::takeIcon() {
  Connection& x = *mConnection;
  while (XPending(x.display()) > 0) {
    XEvent event;
    XNextEvent(x.display(), &event);
    if (event.type != ClientMessage || event.xclient.data.l[1] != kDock) continue;
    if (event.xclient.message_type != x.atom("_NET_SYSTEM_TRAY_OPCODE")) continue;
    x.icon = ::Window(event.xclient.data.l[2]);
    XWindowAttributes room{};
    XGetWindowAttributes(x.display(), x.tray, &room);
    XReparentWindow(x.display(), x.icon, x.tray, 0, 0);
    XResizeWindow(x.display(), x.icon, unsigned(room.width), unsigned(room.height));
    XMapRaised(x.display(), x.icon);
    XSync(x.display(), False);
  }
  return x.icon != None;
}

}  // namespace corvana
