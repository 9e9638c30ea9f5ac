#pragma once

#include <QWidget>
#include <memory>

#include "platform/UserInterface.h"
#include "ui/UserInterfaceSources.h"

class QCloseEvent;
class QKeyEvent;

namespace corvana {

/// A window of the agent: drawn from the sources, acting through their commands. It is made when it
/// is shown and goes when it is closed, so that it costs nothing while nobody looks. Thread: main.
class AgentWindow : public QWidget {
 public:
  AgentWindow(Window which, const UserInterfaceSources& sources);

  Window which() const { return mWhich; }
  /// What it shows may have changed: lists, menus, states. Called while it is visible, at most once
  /// a turn of the loop, and once before it is shown.
  virtual void refresh() {}
  /// The same for what goes on now, such as the progress of an execution: it changes often, and the
  /// long lists do not change with it.
  virtual void refreshState() { refresh(); }
  /// Of a window that shows a text: what it shows.
  virtual void setText(const std::string& /*text*/) {}
  /// The widget that has the keyboard when the window comes up; null: Qt's choice.
  virtual QWidget* firstFocus() { return nullptr; }
  /// Its size and place outlive it, in the agent's user defaults. What lies outside of the screens
  /// that are there by then is brought back onto one.
  void rememberPlace() const;
  void restorePlace();
  /// Not larger than the screen has room for, with the frame around it.
  void fitToScreen();

 protected:
  const UserInterfaceSources& sources() const { return mSources; }
  /// A text of the program's language.
  QString text(std::string_view key) const;

  /// Closing asks for nothing and hides the window by the command for it.
  void closeEvent(QCloseEvent* event) override;
  /// Escape and the desktop's closing shortcut close it.
  void keyPressEvent(QKeyEvent* event) override;

 private:
  Window mWhich;
  const UserInterfaceSources& mSources;
};

/// Makes a window; null for one that this desktop does not have. The floating icon is none of them.
std::unique_ptr<AgentWindow> makeWindow(Window which, const UserInterfaceSources& sources);

// Each with its kin in a file.
using WindowMaker = std::unique_ptr<AgentWindow>(const UserInterfaceSources& sources);
WindowMaker makeQueueWindow, makeNextActionsWindow;           // what is to come
WindowMaker makeLatestActionsWindow, makeErrorSummaryWindow;  // what was executed
WindowMaker makeStatusWindow, makeSurveyWindow;               // what goes on
WindowMaker makeMountVolumesWindow, makeAllDisksWindow, makeStrayFoldersWindow, makeLowSpaceWindow;
WindowMaker makePreferencesWindow;

}  // namespace corvana
