#pragma once

#include <QWidget>
#include <functional>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "platform/Input.h"

class QLabel;
class QPushButton;

namespace corvana {

/// Records a shortcut: the keys that are down together when the first of them is let go. Keys that
/// make none, such as a letter alone, are passed over and the recording goes on. Thread: main.
class ShortcutField final : public QWidget {
 public:
  struct Words {
    QString change, clear, none, press;
    std::function<std::string(const ZAN_Value&)> keys;
  };
  explicit ShortcutField(Words words);

  std::function<void(const ZAN_Value&)> onChanged;
  void setKeys(const ZAN_Value& keys);
  QPushButton* button() { return mChange; }

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void record(bool on);

  Words mWords;
  QLabel* mShown;
  QPushButton* mChange;
  bool mRecords = false;
  KeyMap mDown{};
  ZAN_Value mKeys;
};

}  // namespace corvana
