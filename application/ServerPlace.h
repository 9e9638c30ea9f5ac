#pragma once

#include <QDialog>
#include <functional>
#include <string>

#include "application/CommandChild.h"
#include "application/Look.h"

class QComboBox;
class QFrame;
class QLineEdit;

namespace corvana {

class Household;

/// What opens a repository, as it was typed; to be kept where `corvana9` keeps it.
struct RepositoryKeeping {
  std::string place = {};     ///< its address without passwords, or the folder that it is in
  std::string address = {};   ///< with them, where there are some in it
  std::string password = {};  ///< empty: the one that is kept already

  /// Refused when no password is known at all. Thread: any; blocks while a keyring is unlocked.
  Outcome keepIn(const std::string& hiddenFolder) const;
};

/// The address of a repository on a server, asked for by its kind. Thread: main.
class ServerFields final : public QWidget {
 public:
  explicit ServerFields(Household& household);

  /// As a record stores it; empty: a fresh one.
  void show(const QString& address);
  /// As restic takes it, with the passwords that belong to it; empty: none was given yet.
  QString address() const;
  std::function<void()> onChange;

 private:
  void showKind();

  Household& mHousehold;
  QComboBox* mKind;
  QLineEdit* mAddress;
  QWidget* mLogin;
  QLineEdit* mUser;
  QLineEdit* mSecret;
};

/// The password of a repository, and a button that tries it, with what the server says to it.
/// Thread: main.
class RepositoryLock final : public QWidget {
 public:
  /// `keeping` tells what is to be tried.
  RepositoryLock(Household& household, std::function<RepositoryKeeping()> keeping);

  void clear();
  std::string password() const;
  /// Keeps what was typed, and then calls; else says why it could not. `isNew`: nothing is there
  /// yet.
  void keep(std::function<void(const RepositoryKeeping& keeping, bool isNew)> kept);
  std::function<void()> onChange;

 private:
  void tryIt();
  void ask(const QString& place);
  void say(const char* look, const QString& text);

  Household& mHousehold;
  std::function<RepositoryKeeping()> mKeeping;
  CommandChild mChild;
  QLineEdit* mPassword;
  QPushButton* mTest;
  QFrame* mStrip;
  TextLabel* mResult;
};

/// Asks for a repository whose backup is not known here, by its address and password. It deletes
/// itself. Thread: main.
class RepositoryDialog final : public QDialog {
 public:
  /// `address`: what is known of it already.
  RepositoryDialog(QWidget* parent, Household& household, const QString& address);

  /// What opens it is kept; by its address without passwords.
  std::function<void(const QString& place)> onOpened;

 private:
  RepositoryKeeping keeping() const;
  void goOn();

  ServerFields* mFields;
  RepositoryLock* mLock;
  QPushButton* mOpen;
};

}  // namespace corvana
