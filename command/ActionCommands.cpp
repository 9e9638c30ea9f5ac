// The commands that change the stored tree: add, edit, remove, group.

#include "command/ActionWords.h"
#include "command/CommandHome.h"
#include "command/Commands.h"
#include "command/RunningAgent.h"

namespace corvana {

namespace {

/// Edits the stored tree and tells the agent.
Outcome edited(CommandHome& home, const std::function<Outcome(ProgrammedAction& root)>& edit) {
  Outcome done = home.tree().editStoredTree(edit);
  if (done) tellAgentThatActionListChanged();
  return done;
}

std::string named(std::int64_t reference, const std::string& title) {
  return std::to_string(reference) + ": " + printable(title) + '\n';
}

Error noSuchReference(std::int64_t reference) {
  return {ErrorKind::absent, std::to_string(reference) + ": no action or group has this reference"};
}

}  // namespace

Answer addCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  ActionWords action(arguments);
  const auto words = arguments.words(1, 1);
  if (!words) return wrongWords(words.error());
  const std::string& title = words->front();
  if (title.empty()) return wrongWords({ErrorKind::refused, "the title is empty"});
  if (!action.hasSources() || !action.hasDestination()) {
    return wrongWords({ErrorKind::refused, "--source and --destination are missing"});
  }
  CommandHome home(console);
  if (Outcome there = action.describeFolders(home); !there) return there.error();

  action.setTitle(title);
  ZAN_Value record;
  const Outcome done = edited(home, [&](ProgrammedAction& root) -> Outcome {
    auto group = groupWithReference(root, action.group().value_or(0));
    if (!group) return group.error();
    record = ZAN_Value::dictionary({{"Title", title},
                                    {"Mode", 2},
                                    {"OptionsPerformer", "corvana9"},
                                    {"TriggerAutomatic", 0},
                                    {"SaveEditDate", ZAN_Value::date(home.now())}});
    action.applyTo(record, home);
    (*group)->addActionsFromList(ZAN_Value::array({record}), false, std::nullopt);
    record = (*group)->childAtIndex((*group)->numberOfChildren() - 1).getSettings();
    return {};
  });
  if (!done) return done.error();
  return answerAbout("added", record, home);
}

Answer editCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  ActionWords action(arguments);
  const auto words = arguments.words(1, 1);
  if (!words) return wrongWords(words.error());
  const auto reference = referenceFrom(words->front());
  if (!reference) return wrongWords(reference.error());
  if (action.isEmpty()) return wrongWords({ErrorKind::refused, "nothing to change"});
  CommandHome home(console);
  if (!home.isThere()) return noSuchReference(*reference);
  if (Outcome there = action.describeFolders(home); !there) return there.error();

  ZAN_Value record;
  const Outcome done = edited(home, [&](ProgrammedAction& root) -> Outcome {
    ProgrammedAction* node = root.actionOrGroupForReference(*reference);
    if (node == nullptr) return noSuchReference(*reference);
    if (node->isGroup() && !action.fitsGroup()) {
      return Error{ErrorKind::refused,
                   words->front() + ": a group has only --title, --shortcut and --group"};
    }
    record = node->getSettings();
    action.applyTo(record, home);
    record.setValue("SaveEditDate", ZAN_Value::date(home.now()));
    node->changeSettings(record);
    if (!action.group()) return {};
    auto group = groupWithReference(root, *action.group());
    if (!group) return group.error();
    if (*group == node || (*group)->isDescendantOfNode(*node)) {
      return Error{ErrorKind::refused, words->front() + ": a group cannot lie in itself"};
    }
    if (*group != node->parent()) {
      node->moveActionTo(**group, (*group)->numberOfChildren(), SortMode::title);
    }
    return {};
  });
  if (!done) return done.error();
  return answerAbout("changed", record, home);
}

Answer removeCommand(Arguments& arguments, const Console& console) {
  const bool force = arguments.flag("--force");
  const auto words = arguments.words(1, 1);
  if (!words) return wrongWords(words.error());
  const auto reference = referenceFrom(words->front());
  if (!reference) return wrongWords(reference.error());
  CommandHome home(console);
  if (!home.isThere()) return noSuchReference(*reference);

  std::string title;
  const Outcome done = edited(home, [&](ProgrammedAction& root) -> Outcome {
    ProgrammedAction* node = root.actionOrGroupForReference(*reference);
    if (node == nullptr) return noSuchReference(*reference);
    if (node->numberOfChildren() > 0 && !force) {
      return Error{ErrorKind::refused,
                   words->front() + ": the group is not empty (--force removes all in it)"};
    }
    title = node->getTitle();
    node->removeFromList();
    return {};
  });
  if (!done) return done.error();
  return Answer::ofText("removed " + named(*reference, title));
}

Answer groupCommand(Arguments& arguments, const Console& console) {
  const auto parent = arguments.number("--group", 0, INT64_MAX);
  const std::string shortcut = arguments.option("--shortcut").value_or("");
  const auto words = arguments.words(1, 1);
  if (!words) return wrongWords(words.error());
  CommandHome home(console);
  std::int64_t reference = 0;
  const Outcome done = edited(home, [&](ProgrammedAction& root) -> Outcome {
    auto group = groupWithReference(root, parent.value_or(0));
    if (!group) return group.error();
    const ProgrammedAction* added = (*group)->addGroup(words->front(), shortcut, 0);
    if (added == nullptr) return Error{ErrorKind::refused, "the title is empty"};
    reference = added->getReference();
    return {};
  });
  if (!done) return done.error();
  return Answer::ofText("added group " + named(reference, words->front()));
}

}  // namespace corvana
