#pragma once

#include <functional>
#include <vector>

#include "application/CommandChild.h"
#include "application/Page.h"
#include "core/record/Preferences.h"

class QCheckBox;
class QComboBox;
class QFrame;
class QLineEdit;
class QPushButton;
class QListWidget;
class QStackedWidget;
class QTimeEdit;
class QVBoxLayout;

namespace corvana {

class AgeAlarms;
class AppearancePreview;
class PairedComputers;
class TextLabel;

/// Everything that can be chosen beyond the single backup, a few pages. What is changed counts at
/// once; only the mail account is tried first.
class SettingsPage final : public Page {
 public:
  SettingsPage(Household& household, Navigator& navigator);

  void refresh(ChangeSet changed) override;

 private:
  // Pages and what they are made of.
  QVBoxLayout* addPage(const char* title, const char* explanation);
  void addPreferences(QVBoxLayout* column, Preference::Page page, const char* heading);
  void addField(QVBoxLayout* column, const Preference& one);
  void addRow(QVBoxLayout* column, const QString& label, QWidget* field, const QString& help);
  QWidget* fieldFor(const Preference& one);
  void makeMailPage();
  void makeMachinesPage();
  void makeCopiesPage();

  void change(const Preference& one, const ZAN_Value& value);
  void changeMail(std::string_view key, const ZAN_Value& value);
  void showSample();
  void readMail();
  void trySettings();
  void mailTried(const CommandChild::Ending& ending);
  void loadShown();
  void loadAlarms();
  void loadCopies();
  void bringBack(const QString& which, int number);

  DeadlineList mDeadlines;
  Preferences mPreferences;
  std::vector<std::function<void()>> mReads;  ///< take each value anew
  CommandChild mMailChild;
  CommandChild mCopiesChild;

  AgeAlarms* mAlarms = nullptr;
  AppearancePreview* mPreview = nullptr;
  QListWidget* mSide = nullptr;
  QStackedWidget* mStack = nullptr;
  QLineEdit* mAddress = nullptr;
  QLineEdit* mRecipients = nullptr;
  QLineEdit* mServer = nullptr;
  QLineEdit* mPassword = nullptr;
  QPushButton* mTest = nullptr;
  QFrame* mMailStrip = nullptr;
  TextLabel* mMailResult = nullptr;
  QCheckBox* mMailOn = nullptr;
  QComboBox* mEvery = nullptr;
  QTimeEdit* mTime = nullptr;
  PairedComputers* mPairs = nullptr;
  QVBoxLayout* mCopies = nullptr;
};

}  // namespace corvana
