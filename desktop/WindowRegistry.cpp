#include "desktop/WindowRegistry.h"

#include <malloc.h>

#include <QtWidgets>
#include <algorithm>
#include <utility>

#include "desktop/AgentWindow.h"

namespace corvana {

namespace {

constexpr double kGiveBackAfter = 2.0;

}  // namespace

WindowRegistry::WindowRegistry(RunLoop& runLoop) : mRunLoop(runLoop) {}

WindowRegistry::~WindowRegistry() = default;

void WindowRegistry::setSources(const UserInterfaceSources* sources) {
  if (sources == nullptr) {
    for (const auto& [which, window] : mWindows) window->rememberPlace();
    mWindows.clear();
    mRunLoop.cancel(std::exchange(mGiveBackTimer, 0));
  }
  mSources = sources;
}

AgentWindow* WindowRegistry::make(Window which) {
  if (mSources == nullptr) return nullptr;
  if (const auto found = mWindows.find(which); found != mWindows.end()) return found->second.get();
  auto made = makeWindow(which, *mSources);
  if (made == nullptr) return nullptr;
  if (const auto text = mTexts.find(which); text != mTexts.end()) made->setText(text->second);
  made->restorePlace();
  made->fitToScreen();
  return (mWindows[which] = std::move(made)).get();
}

void WindowRegistry::show(Window which) {
  AgentWindow* window = make(which);
  if (window == nullptr) return;
  window->setAttribute(Qt::WA_ShowWithoutActivating, false);
  window->refresh();
  window->setWindowState(window->windowState() & ~Qt::WindowMinimized);
  window->show();
  window->raise();
  window->activateWindow();
  if (QWidget* first = window->firstFocus()) first->setFocus();
}

void WindowRegistry::showQuietly(Window which) {
  AgentWindow* window = make(which);
  if (window == nullptr) return;
  window->refresh();
  if (window->isVisible()) return;
  window->setAttribute(Qt::WA_ShowWithoutActivating);
  window->show();
}

void WindowRegistry::setText(Window which, const std::string& text) {
  mTexts[which] = text;
  if (isVisible(which)) mWindows[which]->setText(text);
}

void WindowRegistry::hide(Window which) {
  mTexts.erase(which);
  const auto found = mWindows.find(which);
  if (found == mWindows.end()) return;
  // It may be the one that asks for this, from within one of its own handlers.
  AgentWindow* window = found->second.release();
  window->rememberPlace();
  mWindows.erase(found);
  window->hide();
  window->deleteLater();
  if (!anyVisible()) giveMemoryBack();
}

void WindowRegistry::giveMemoryBack() {
  mRunLoop.cancel(mGiveBackTimer);
  mGiveBackTimer = mRunLoop.performAfter(kGiveBackAfter, [this] {
    mGiveBackTimer = 0;
    if (anyVisible()) return;
    QPixmapCache::clear();
    ::malloc_trim(0);
  });
}

bool WindowRegistry::isVisible(Window which) const {
  const auto found = mWindows.find(which);
  return found != mWindows.end() && found->second->isVisible();
}

bool WindowRegistry::anyVisible() const {
  return std::ranges::any_of(mWindows, [](const auto& one) { return one.second->isVisible(); });
}

void WindowRegistry::bringToFront() {
  for (const auto& [which, window] : mWindows) {
    if (!window->isVisible()) continue;
    window->raise();
    window->activateWindow();
  }
}

void WindowRegistry::refresh() {
  if (!anyVisible()) return;
  mAllChanged = true;
  refreshLater();
}

void WindowRegistry::refreshState(Window which) {
  if (!isVisible(which)) return;
  mChanged.insert(which);
  refreshLater();
}

void WindowRegistry::refreshLater() {
  if (std::exchange(mWillRefresh, true)) return;
  mRunLoop.performAfter(0, [this] {
    mWillRefresh = false;
    const bool all = std::exchange(mAllChanged, false);
    const std::set<Window> changed = std::exchange(mChanged, {});
    for (const auto& [which, window] : mWindows) {
      if (!window->isVisible()) continue;
      if (all) {
        window->refresh();
      } else if (changed.contains(which)) {
        window->refreshState();
      }
    }
  });
}

}  // namespace corvana
