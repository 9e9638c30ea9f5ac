#include "platform/qt/BusAgentObject.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusVirtualObject>
#include <algorithm>
#include <deque>
#include <iterator>
#include <map>
#include <utility>

#include "platform/Burst.h"

namespace corvana {

namespace {

// A program asks one thing after another; a few at once is generous. A script may launch a whole
// tree without waiting for each answer.
constexpr int kMostOfOneCaller = 32;
constexpr int kMostOfAll = 256;
constexpr int kMostLaunches = 4096;
constexpr QLatin1String kLaunch("Launch");

using Maps = QList<QVariantMap>;

QVariantMap mapOf(const ZAN_Value& dictionary) {
  int dropped = 0;
  return BusValues::mapWithDictionary(dictionary, dropped);
}

QVariant listOf(const ZAN_Value& dictionaries) {
  Maps maps;
  for (const ZAN_Value& one : dictionaries.elements()) maps.append(mapOf(one));
  return QVariant::fromValue(maps);
}

QString textOf(const std::string& text) {
  QString result = QString::fromStdString(text);
  // The library cuts a text there.
  return result.replace(QChar(u'\0'), QChar(u' '));
}

QString kindOf(const Error& error) {
  return error.kind == ErrorKind::absent ? BusNames::agent() + QStringLiteral(".Error.Absent")
                                         : BusNames::agent() + QStringLiteral(".Error.Failed");
}

}  // namespace

class BusAgentObject::Private final : public QDBusVirtualObject {
  Q_OBJECT

 public:
  Private(BusConnection& connection, RunLoop& runLoop, const Clock& clock)
      : mConnection(connection), mRunLoop(runLoop), mClock(clock), mBurst(clock) {
    BusValues::registerTypes();
    qDBusRegisterMetaType<Maps>();
  }

  ~Private() override { disappear(); }

  void appear(AgentAnswers& answers) {
    mAnswers = &answers;
    mConnection.whenConnected(this, [this] { takeName(); });
  }

  void disappear() {
    if (mAnswers == nullptr) return;
    if (!mLaunched.empty()) {
      mAnswers->together([] { return false; });
      mBurst.end();
      std::ranges::move(std::exchange(mLaunched, {}), std::back_inserter(mStored));
    }
    for (const Question& question : std::exchange(mStored, {})) answerLaunch(question);
    mAnswers = nullptr;
    mConnection.forget(this);
    mRunLoop.cancel(std::exchange(mTelling, 0));
    if (!mConnection.isConnected()) return;
    callBus(QStringLiteral("ReleaseName"), {BusNames::agent()});
    mConnection.bus().unregisterObject(BusNames::agentPath());
  }

  void changed() {
    if (mTelling != 0 || mAnswers == nullptr) return;
    mTelling = mRunLoop.performAfter(0, [this] {
      mTelling = 0;
      if (!mConnection.isConnected()) return;
      mConnection.bus().send(QDBusMessage::createSignal(BusNames::agentPath(), BusNames::agent(),
                                                        BusNames::changed()));
    });
  }

  QString introspect(const QString&) const override {
    return QStringLiteral(
        "<interface name=\"com.zan.corvana9.Scheduler\">"
        "<method name=\"Status\"><arg type=\"a{sv}\" direction=\"out\"/></method>"
        "<method name=\"Queue\"><arg type=\"aa{sv}\" direction=\"out\"/></method>"
        "<method name=\"Next\"><arg type=\"aa{sv}\" direction=\"out\"/></method>"
        "<method name=\"Why\"><arg name=\"ref\" type=\"x\" direction=\"in\"/>"
        "<arg type=\"as\" direction=\"out\"/></method>"
        "<method name=\"Launch\"><arg name=\"ref\" type=\"x\" direction=\"in\"/>"
        "<arg type=\"s\" direction=\"out\"/></method>"
        "<signal name=\"Changed\"/></interface>");
  }

  bool handleMessage(const QDBusMessage& message, const QDBusConnection& bus) override {
    if (message.type() != QDBusMessage::MethodCallMessage) return false;
    if (!message.interface().isEmpty() && message.interface() != BusNames::agent()) return false;
    const bool launches = message.member() == kLaunch;
    if (launches ? mWaitingLaunches >= kMostLaunches : !mayAsk(message)) {
      answer(message, bus,
             message.createErrorReply(QDBusError::LimitsExceeded,
                                      QStringLiteral("too many questions at once")));
      return true;
    }
    if (launches) ++mWaitingLaunches;
    // Behind the notifications that arrived before, and then with what else has come by now.
    afterThis([this, message, bus, launches] {
      (launches ? mLaunches : mQuestions).push_back({message, bus});
      if (mQuestions.size() + mLaunches.size() == 1) afterThis([this] { answerAll(); });
    });
    return true;
  }

 private:
  struct Question {
    QDBusMessage message;
    QDBusConnection bus;
    QDBusMessage reply = {};
  };

  bool mayAsk(const QDBusMessage& message) {
    int& ofCaller = mWaitingOf[message.service()];
    if (ofCaller < kMostOfOneCaller && mWaiting < kMostOfAll) {
      ++ofCaller;
      ++mWaiting;
      return true;
    }
    if (ofCaller == 0) mWaitingOf.erase(message.service());
    return false;
  }

  /// In the next pass of the loop, unless this has gone by then.
  void afterThis(std::function<void()> step) { after(0, std::move(step)); }

  void after(double seconds, std::function<void()> step) {
    mRunLoop.performAfter(seconds, [alive = std::weak_ptr<int>(mAlive), step = std::move(step)] {
      if (!alive.expired()) step();
    });
  }

  /// What came at once is carried out at once, and what it changes is stored once before anybody
  /// is told that it is done. Nobody's question waits for many launches of another.
  void answerAll() {
    for (Question& question : std::exchange(mQuestions, {})) {
      --mWaiting;
      if (const auto of = mWaitingOf.find(question.message.service()); --of->second == 0)
        mWaitingOf.erase(of);
      answer(question.message, question.bus, replyTo(question.message));
    }
    if (mLaunches.empty() && !mBurst.isOpen()) return;
    const auto launch = [this] {
      return mBurst.goOn(mLaunches, [this](Question&& question) {
        Question& launched = mLaunched.emplace_back(std::move(question));
        launched.reply = replyTo(launched.message);
      });
    };
    const bool moreFollow = mAnswers != nullptr ? mAnswers->together(launch) : launch();
    if (!moreFollow) {
      std::ranges::move(std::exchange(mLaunched, {}), std::back_inserter(mStored));
      answerStored();
    }
    if (moreFollow || !mLaunches.empty()) after(Burst::pause(mLaunches), [this] { answerAll(); });
  }

  void answerStored() {
    Burst::takeSlice(mClock, mStored, [this](const Question& question) { answerLaunch(question); });
    if (!mStored.empty()) afterThis([this] { answerStored(); });
  }

  void answerLaunch(const Question& question) {
    --mWaitingLaunches;
    answer(question.message, question.bus, question.reply);
  }

  static void answer(const QDBusMessage& message, const QDBusConnection& bus,
                     const QDBusMessage& reply) {
    if (message.isReplyRequired()) bus.send(reply);
  }

  QDBusMessage replyTo(const QDBusMessage& message) {
    const QString method = message.member();
    const bool ofAction = method == QStringLiteral("Why") || method == kLaunch;
    if (!ofAction && method != QStringLiteral("Status") && method != QStringLiteral("Queue") &&
        method != QStringLiteral("Next")) {
      return message.createErrorReply(QDBusError::UnknownMethod,
                                      QStringLiteral("no method of this name"));
    }
    if (message.signature() != (ofAction ? QStringLiteral("x") : QString())) {
      return message.createErrorReply(
          QDBusError::InvalidArgs, ofAction ? QStringLiteral("wants the reference of an action (x)")
                                            : QStringLiteral("wants no arguments"));
    }
    if (mAnswers == nullptr)
      return message.createErrorReply(QDBusError::Failed, QStringLiteral("the agent is leaving"));
    if (ofAction) {
      const std::int64_t ref = message.arguments().constFirst().toLongLong();
      return method == kLaunch ? replyToLaunch(message, ref) : replyToWhy(message, ref);
    }
    if (method == QStringLiteral("Status")) return message.createReply(mapOf(mAnswers->status()));
    return message.createReply(
        listOf(method == QStringLiteral("Queue") ? mAnswers->queue() : mAnswers->next()));
  }

  QDBusMessage replyToLaunch(const QDBusMessage& message, std::int64_t ref) {
    const Outcome launched = mAnswers->launch(ref);
    return message.createReply(launched ? QStringLiteral("queued") : textOf(launched.error().text));
  }

  QDBusMessage replyToWhy(const QDBusMessage& message, std::int64_t ref) {
    const auto reasons = mAnswers->why(ref);
    if (!reasons) {
      return message.createErrorReply(kindOf(reasons.error()), textOf(reasons.error().text));
    }
    QStringList lines;
    for (const std::string& reason : *reasons) lines.append(textOf(reason));
    return message.createReply(lines);
  }

  void takeName() {
    mConnection.bus().registerVirtualObject(BusNames::agentPath(), this);
    // 0: nobody may take it away, and while it is taken the bus keeps a place in the line.
    callBus(QStringLiteral("RequestName"), {BusNames::agent(), 0U});
  }

  void callBus(const QString& method, const QList<QVariant>& arguments) {
    QDBusMessage message = QDBusMessage::createMethodCall(BusNames::bus(), BusNames::busPath(),
                                                          BusNames::bus(), method);
    message.setArguments(arguments);
    mConnection.bus().send(message);
  }

  BusConnection& mConnection;
  RunLoop& mRunLoop;
  const Clock& mClock;
  Burst mBurst;  // of launches
  AgentAnswers* mAnswers = nullptr;
  RunLoop::TimerId mTelling = 0;
  std::deque<Question> mQuestions;
  std::deque<Question> mLaunches;
  std::deque<Question> mLaunched;  // not stored yet
  std::deque<Question> mStored;
  int mWaiting = 0;
  int mWaitingLaunches = 0;
  std::map<QString, int> mWaitingOf;
  std::shared_ptr<int> mAlive = std::make_shared<int>();
};

BusAgentObject::BusAgentObject(BusConnection& connection, RunLoop& runLoop, const Clock& clock)
    : mPrivate(std::make_unique<Private>(connection, runLoop, clock)) {}

BusAgentObject::~BusAgentObject() = default;

void BusAgentObject::appear(AgentAnswers& answers) { mPrivate->appear(answers); }

void BusAgentObject::disappear() { mPrivate->disappear(); }

void BusAgentObject::changed() { mPrivate->changed(); }

}  // namespace corvana

#include "BusAgentObject.moc"
