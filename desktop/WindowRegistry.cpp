#include "desktop/WindowRegistry.h"

#include <malloc.h>

#include <QPixmapCache>
#include <algorithm>
#include <utility>

#include "desktop/AgentWindow.h"
#include "desktop/WindowFactory.h"
#include "platform/RunLoop.h"

namespace corvana {

namespace {

constexpr double kGiveBackAfter = 2.0;

}  // namespace

WindowRegistry::WindowRegistry(RunLoop& runLoop) : mRunLoop(runLoop) {}

WindowRegistry::~WindowRegistry() = default;

void WindowRegistry::setSources(const UserInterfaceSources* sources) {
  if (sources == nullptr) {
    mWindows.clear();
    mRunLoop.cancel(std::exchange(mGiveBackTimer, 0));
  }
  mSources = sources;
}

void WindowRegistry::show(Window which) {
  if (mSources == nullptr) return;
  auto& window = mWindows[which];
  if (window == nullptr) window = makeWindow(which, *mSources);
  if (window == nullptr) return;
  if (const auto text = mTexts.find(which); text != mTexts.end()) window->setText(text->second);
  window->refresh();
  window->show();
  window->raise();
  window->activateWindow();
  if (QWidget* first = window->firstFocus()) first->setFocus();
}

void WindowRegistry::setText(Window which, const std::string& text) {
  mTexts[which] = text;
  if (isVisible(which)) mWindows[which]->setText(text);
}

void WindowRegistry::hide(Window which) {
  mTexts.erase(which);
  const auto found = mWindows.find(which);
  if (found == mWindows.end() || found->second == nullptr) return;
  // It may be the one that asks for this, from within one of its own handlers.
  AgentWindow* window = found->second.release();
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
  return found != mWindows.end() && found->second != nullptr && found->second->isVisible();
}

bool WindowRegistry::anyVisible() const {
  return std::ranges::any_of(
      mWindows, [](const auto& one) { return one.second != nullptr && one.second->isVisible(); });
}

void WindowRegistry::bringToFront() {
  for (const auto& [which, window] : mWindows) {
    if (window == nullptr || !window->isVisible()) continue;
    window->raise();
    window->activateWindow();
  }
}

void WindowRegistry::refresh() {
  if (mWillRefresh || !anyVisible()) return;
  mWillRefresh = true;
  mRunLoop.performAfter(0, [this] {
    mWillRefresh = false;
    for (const auto& [which, window] : mWindows) {
      if (window != nullptr && window->isVisible()) window->refresh();
    }
  });
}

}  // namespace corvana
