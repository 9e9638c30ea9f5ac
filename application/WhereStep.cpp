#include "application/WhereStep.h"

#include <QComboBox>
#include <QDir>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QVBoxLayout>
#include <set>
#include <utility>

#include "actions/RecordKeys.h"
#include "desktop/Texts.h"
#include "execute/restic/Repository.h"
#include "volumes/VolumeIdentity.h"

namespace corvana {

WhereStep::WhereStep(Household& household)
    : mHousehold(household),
      mChoices(this),
      mList(new QVBoxLayout),
      mNone(new TextLabel(household.text("WhereNone"), Look::Size::body, Look::Meaning::muted)),
      mFolder(mChoices.add(household.text("WhereFolder"))),
      mPath(new QLineEdit),
      mServer(mChoices.add(household.text("WhereServer"))),
      mFields(new ServerFields(household)),
      mKeeping(new Card),
      mEngine(new QComboBox),
      mEngineText(new TextLabel({}, Look::Size::small, Look::Meaning::muted)),
      mLock(new RepositoryLock(household, [this] { return keeping(); })) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(Look::space(2));
  mList->setSpacing(Look::space(2));
  column->addWidget(mNone);
  column->addLayout(mList);
  mFolder->head(QStringLiteral("folder"));
  mFolder->say(household.text("WhereFolder"));
  mPath->setAccessibleName(household.text("WhereFolder"));
  mPath->setMinimumWidth(30 * fontMetrics().averageCharWidth());
  mFolder->add(mPath, true);
  mFolder->add(makeButton(household.text("WhereChoose"), [this] {
    const QString folder =
        QFileDialog::getExistingDirectory(this, mHousehold.text("WhereFolder"), QDir::homePath());
    if (!folder.isEmpty()) mPath->setText(folder);
    mChoices.choose(mFolder);
  }));
  column->addWidget(mFolder);
  mServer->head(QStringLiteral("network-server"));
  mServer->say(household.text("WhereServer"));
  mServer->column()->addWidget(mFields);
  column->addWidget(mServer);
  auto* engine = new QHBoxLayout;
  engine->setSpacing(Look::space(2));
  auto* words = new TextLabel(household.text("WhereKept"));
  words->setWordWrap(false);
  engine->addWidget(words);
  mEngine->addItem(household.text("WherePlain"));
  mEngine->addItem(household.text("WhereEncrypted"));
  mEngine->setAccessibleName(household.text("WhereKept"));
  engine->addWidget(mEngine);
  engine->addStretch(1);
  mKeeping->column()->addLayout(engine);
  mKeeping->column()->addWidget(mEngineText);
  mKeeping->column()->addWidget(mLock);
  column->addWidget(mKeeping);
  const auto tell = [this] {
    showKeeping();
    if (onChange) onChange();
  };
  mChoices.onChosen = tell;
  mFields->onChange = [this, tell] {
    if (!mFields->address().isEmpty()) mChoices.choose(mServer);
    tell();
  };
  mLock->onChange = tell;
  QObject::connect(mEngine, &QComboBox::currentIndexChanged, this, tell);
  QObject::connect(mPath, &QLineEdit::textChanged, this, tell);
}

void WhereStep::begin() {
  mShown.clear();
  mPath->clear();
  mFields->show({});
  mLock->clear();
  mEngineBefore.reset();
  mEngine->setCurrentIndex(0);
  setFixed(false);
  mChoices.choose(mFolder);
  refresh(0);
  // A disk beside the machine's own is what a backup wants.
  mChoices.choose(mVolumes.empty() ? mFolder : mVolumes.begin()->second.choice);
}

void WhereStep::show(const ZAN_Value& settings) {
  const bool isEncrypted = settings.string(EngineKey::name) == RepositoryKey::kEngine;
  const std::string address = isEncrypted ? settings.string(RepositoryKey::address) : std::string();
  mShown = address.empty() ? std::string(ActionsTools::getDestinationForAction(settings).path())
                           : address;
  mPath->clear();
  mFields->show(qt(address));
  mLock->clear();
  mEngineBefore.reset();
  mEngine->setCurrentIndex(isEncrypted ? 1 : 0);
  setFixed(true);
  mChoices.choose(mFolder);
  refresh(0);
  if (!address.empty()) return mChoices.choose(mServer);
  for (auto& [place, volume] : mVolumes)
    if (volume.folder == mShown) return mChoices.choose(volume.choice);
  mPath->setText(qt(mShown));
  mChoices.choose(mFolder);
}

WhereStep::Volume& WhereStep::volumeFor(const Mount& mount, const QString& name) {
  Volume& volume = mVolumes[mount.target];
  if (volume.choice != nullptr) return volume;
  volume.name = name;
  volume.folder = ZAN_FilesUtils::joinedPath(
      mount.target, utf8(mHousehold.text("WhereFolderName", {mHousehold.machine().networkName()})));
  volume.choice = mChoices.add(name);
  volume.fitness = new TextLabel({}, Look::Size::small, Look::Meaning::muted);
  volume.choice->head(
      mount.isServer ? QStringLiteral("network-server") : QStringLiteral("drive-harddisk"),
      {new TextLabel(name, Look::Size::strong), volume.fitness});
  mList->addWidget(volume.choice);
  // It is made last, and read out and reached by the keyboard where it stands.
  volume.choice->stackUnder(mFolder);
  QWidget* before = mFolder->button();
  do {
    before = before->previousInFocusChain();
  } while (before->focusPolicy() == Qt::NoFocus);
  setTabOrder(before, volume.choice->button());
  return volume;
}

void WhereStep::refresh(std::uint64_t bytes) {
  if (bytes != 0) mBytes = bytes;
  Volumes& volumes = mHousehold.volumes();
  const auto mounts = volumes.mounts();
  const Mount* home = mountAt(mounts, mHousehold.store().folder().homeFolder());
  std::set<std::string> there;
  for (const Mount& mount : mounts) {
    if (!mount.isVolume || !mount.writable || mount.target == "/") continue;
    there.insert(mount.target);
    const auto known = volumes.information(mount);
    Volume& volume = volumeFor(mount, qt(VolumeReference::nameOf(mount, known)));
    volume.isAway = false;
    const bool isSameDisk = home != nullptr && home->device == mount.device;
    if (!known) {
      volume.fitness->setText(mHousehold.text("WhereSilent"));
      volume.fitness->setMeaning(Look::Meaning::caution);
      continue;
    }
    const std::string free = mHousehold.strings().getShortSizeBytes(known->freeSize);
    const bool isFull = mBytes != 0 && known->freeSize < mBytes;
    volume.fitness->setText(isSameDisk ? mHousehold.text("WhereSameDisk", {free})
                            : isFull   ? mHousehold.text("WhereFull", {free})
                                       : mHousehold.text("WhereFits", {free}));
    volume.fitness->setMeaning(isSameDisk || isFull ? Look::Meaning::caution : Look::Meaning::good);
  }
  for (auto volume = mVolumes.begin(); volume != mVolumes.end();) {
    if (there.contains(volume->first)) {
      ++volume;
      continue;
    }
    if (Volume& one = volume->second; one.choice->isChosen()) {
      one.isAway = true;
      one.fitness->setText(mHousehold.text("CardNotConnected", {utf8(one.name)}));
      one.fitness->setMeaning(Look::Meaning::caution);
      ++volume;
      continue;
    }
    mChoices.remove(volume->second.choice);
    volume = mVolumes.erase(volume);
  }
  mNone->setVisible(mVolumes.empty());
}

/// Copies in folders and those in a repository cannot take each other's place.
void WhereStep::setFixed(bool isFixed) {
  mIsFixed = isFixed;
  mEngine->setEnabled(!isFixed);
  mServer->setVisible(!isFixed || mEngine->currentIndex() == 1);
  showKeeping();
}

void WhereStep::showKeeping() {
  const bool isServer = mServer->isChosen();
  mFields->setVisible(isServer);
  mEngine->setEnabled(!mIsFixed && !isServer);
  // A server leaves no choice, and takes none away.
  if (isServer && !mEngineBefore) {
    mEngineBefore = mEngine->currentIndex();
    mEngine->setCurrentIndex(1);
  } else if (!isServer && mEngineBefore) {
    mEngine->setCurrentIndex(*std::exchange(mEngineBefore, std::nullopt));
  }
  mEngineText->setText(mHousehold.text(isEncrypted() ? "WhereEncryptedText" : "WherePlainText"));
  mLock->setVisible(isEncrypted());
}

bool WhereStep::isEncrypted() const { return mEngine->currentIndex() == 1; }

std::string WhereStep::repository() const {
  return mServer->isChosen() ? RepositoryAddress(utf8(mFields->address())).shown() : std::string();
}

RepositoryKeeping WhereStep::keeping() const {
  const bool isServer = mServer->isChosen();
  return {.place = isServer ? repository() : folder(),
          .address = isServer ? utf8(mFields->address()) : std::string(),
          .password = mLock->password()};
}

bool WhereStep::isComplete() const {
  const bool isOpen = !isEncrypted() || mIsFixed || !mLock->password().empty();
  const bool isThere = !isAway() || !isChanged();
  return isOpen && isThere && (!folder().empty() || !repository().empty());
}

void WhereStep::applyTo(ZAN_Value& record) const {
  if (!isEncrypted()) return;
  record.setValue(EngineKey::name, RepositoryKey::kEngine);
  if (mServer->isChosen()) {
    record.setValue(RepositoryKey::address, repository());
    record.removeKey("ItemsDestination");
  } else {
    record.removeKey(RepositoryKey::address);
  }
}

const WhereStep::Volume* WhereStep::chosenVolume() const {
  const Choice* chosen = mChoices.chosen();
  for (const auto& [place, volume] : mVolumes)
    if (volume.choice == chosen) return &volume;
  return nullptr;
}

bool WhereStep::isAway() const {
  const Volume* const volume = chosenVolume();
  return volume != nullptr && volume->isAway;
}

std::string WhereStep::folder() const {
  if (const Volume* const volume = chosenVolume()) return volume->folder;
  if (mChoices.chosen() != mFolder) return {};
  const QString path = mPath->text().trimmed();
  return path.isEmpty() ? std::string() : utf8(QDir::cleanPath(path));
}

QString WhereStep::volume() const {
  const Volume* const volume = chosenVolume();
  return volume == nullptr ? QString() : volume->name;
}

}  // namespace corvana
