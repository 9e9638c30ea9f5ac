#include "application/WhatStep.h"

#include <QCheckBox>
#include <QDir>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QStandardPaths>
#include <QVBoxLayout>
#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>

#include "command/ActionDraft.h"
#include "desktop/Texts.h"

namespace corvana {

namespace {

/// So many entries at a time are told of.
constexpr std::uint64_t kTell = 20'000;

/// The user's folders that are there.
QStringList usualFolders() {
  using Place = QStandardPaths::StandardLocation;
  QStringList folders;
  for (const Place place : {Place::DocumentsLocation, Place::PicturesLocation, Place::MusicLocation,
                            Place::MoviesLocation, Place::DesktopLocation}) {
    const QString folder = QStandardPaths::writableLocation(place);
    if (folder != QDir::homePath() && QDir(folder).exists() && !folders.contains(folder))
      folders.append(folder);
  }
  return folders;
}

}  // namespace

/// What a counting thread has found; the thread ends when nobody wants it any more.
struct WhatStep::Count {
  std::vector<std::string> folders;
  std::set<std::string> leftOut;  ///< paths
  std::atomic<bool> isWanted{true};
  std::atomic<std::uint64_t> files{0};
  std::atomic<std::uint64_t> bytes{0};

  void run(const std::function<void(bool isDone)>& tell) {
    namespace fs = std::filesystem;
    std::uint64_t seen = 0;
    for (const std::string& folder : folders) {
      std::error_code failed;
      fs::recursive_directory_iterator entry(folder, fs::directory_options::skip_permission_denied,
                                             failed);
      for (const fs::recursive_directory_iterator end; !failed && entry != end;
           entry.increment(failed)) {
        if (!isWanted) return;
        if (leftOut.contains(entry->path().string())) {
          entry.disable_recursion_pending();
          continue;
        }
        std::error_code unknown;
        if (entry->symlink_status(unknown).type() == fs::file_type::regular) {
          ++files;
          const auto size = entry->file_size(unknown);
          if (!unknown) bytes += size;
        }
        if (++seen % kTell == 0) tell(false);
      }
    }
    tell(true);
  }
};

WhatStep::WhatStep(Household& household)
    : mHousehold(household),
      mChoices(this),
      mHome(mChoices.add(household.text("WhatHome"))),
      mFolders(mChoices.add(household.text("WhatFolders"))),
      mList(new QVBoxLayout),
      mHomeSize(new TextLabel({}, Look::Size::small, Look::Meaning::muted)),
      mFoldersSize(new TextLabel({}, Look::Size::small, Look::Meaning::muted)) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(Look::space(2));
  const auto head = [](Choice* choice, const QString& icon, const QString& title,
                       const QString& text, TextLabel* size) {
    choice->head(icon, {new TextLabel(title, Look::Size::strong),
                        new TextLabel(text, Look::Size::small, Look::Meaning::muted), size});
  };
  head(mHome, QStringLiteral("user-home"), household.text("WhatHome"),
       household.text("WhatHomeText"), mHomeSize);
  head(mFolders, QStringLiteral("folder"), household.text("WhatFolders"),
       household.text("WhatFoldersText"), mFoldersSize);
  mList->setContentsMargins(Look::space(16), 0, 0, 0);
  mList->setSpacing(Look::space(1));
  mFolders->column()->addLayout(mList);
  auto* more = new QHBoxLayout;
  more->setContentsMargins(Look::space(16), 0, 0, Look::space(1));
  QPushButton* add = makeButton(household.text("WhatAddFolder"), [this] {
    const QString folder =
        QFileDialog::getExistingDirectory(this, mHousehold.text("WhatAddFolder"), QDir::homePath());
    if (folder.isEmpty()) return;
    addFolder(folder, true);
    mChoices.choose(mFolders);
    changed();
  });
  more->addWidget(add);
  more->addStretch(1);
  mFolders->column()->addLayout(more);
  column->addWidget(mHome);
  column->addWidget(mFolders);
  mChoices.onChosen = [this] { changed(); };
}

WhatStep::~WhatStep() {
  if (mCount) mCount->isWanted = false;
}

void WhatStep::begin() {
  mShown.clear();
  for (QCheckBox* box : mBoxes) delete box;
  mBoxes.clear();
  for (const QString& folder : usualFolders()) addFolder(folder, false);
  mChoices.choose(mHome);
  changed();
}

void WhatStep::show(const ZAN_Value& settings) {
  for (QCheckBox* box : mBoxes) delete box;
  mBoxes.clear();
  mShown.clear();
  for (const FolderDescription& source : ActionsTools::getSourcesForAction(settings))
    mShown.emplace_back(source.path());
  const bool isHome = mShown.size() == 1 && mShown.front() == utf8(QDir::homePath());
  if (!isHome)
    for (const std::string& folder : mShown) addFolder(qt(folder), true);
  for (const QString& folder : usualFolders())
    if (std::ranges::find(mShown, utf8(folder)) == mShown.end()) addFolder(folder, false);
  mChoices.choose(isHome ? mHome : mFolders);
  changed();
}

void WhatStep::addFolder(const QString& folder, bool isChecked) {
  const auto known = std::ranges::find(
      mBoxes, folder, [](const QCheckBox* box) { return box->property("folder").toString(); });
  if (known != mBoxes.end()) {
    (*known)->setChecked(isChecked);
    return;
  }
  const QString home = QDir::homePath() + '/';
  QString name = folder.startsWith(home) ? folder.mid(home.size()) : folder;
  auto* box = new QCheckBox(name.replace('&', QStringLiteral("&&")));
  box->setProperty("folder", folder);
  box->setToolTip(folder);
  box->setChecked(isChecked);
  QObject::connect(box, &QCheckBox::toggled, this, [this](bool isOn) {
    if (isOn) mChoices.choose(mFolders);
    changed();
  });
  mBoxes.push_back(box);
  mList->addWidget(box);
}

bool WhatStep::isHome() const { return mHome->isChosen(); }

std::vector<std::string> WhatStep::folders() const {
  if (isHome()) return {utf8(QDir::homePath())};
  std::vector<std::string> folders;
  for (const QCheckBox* box : mBoxes)
    if (box->isChecked()) folders.push_back(utf8(box->property("folder").toString()));
  return folders;
}

bool WhatStep::isChanged() const { return folders() != mShown; }

QString WhatStep::proposedTitle() const {
  if (isHome()) return mHousehold.text("WhatHomeTitle");
  QStringList names;
  for (const std::string& folder : folders()) names.append(QDir(qt(folder)).dirName());
  constexpr qsizetype kFew = 3;
  return names.size() > kFew ? mHousehold.text("WhatFoldersTitle") : names.join(", ");
}

void WhatStep::changed() {
  count();
  if (onChange) onChange();
}

void WhatStep::count() {
  if (mCount) mCount->isWanted = false;
  mHomeSize->clear();
  mFoldersSize->clear();
  mHomeSize->setVisible(isHome());
  mFoldersSize->setVisible(!isHome());
  mBytes = 0;
  mCount = std::make_shared<Count>();
  mCount->folders = folders();
  if (mCount->folders.empty()) return;
  const std::shared_ptr<Count> count = mCount;
  QtRunLoop& loop = mHousehold.loop();
  // The step may be gone when the thread tells of something; the count says so.
  loop.detachThread("count", [this, count, &loop] {
    if (count->folders.front() == utf8(QDir::homePath())) {
      for (const char* folder : {".cache", ".local/share/Trash", ".thumbnails"})
        count->leftOut.insert(count->folders.front() + "/" + folder);
    }
    count->run([this, &count, &loop](bool isDone) {
      loop.performOnMain([this, count, isDone] {
        if (count->isWanted) counted(count, isDone);
      });
    });
  });
}

void WhatStep::counted(const std::shared_ptr<Count>& count, bool isDone) {
  mBytes = count->bytes;
  const std::string size = mHousehold.strings().getShortSizeBytes(count->bytes);
  const auto files = static_cast<std::int64_t>(count->files.load());
  (isHome() ? mHomeSize : mFoldersSize)
      ->setText(isDone ? mHousehold.text("WhatSize", {size, files})
                       : mHousehold.text("WhatSizeSoFar", {size, files}));
  if (isDone && onChange) onChange();
}

}  // namespace corvana
