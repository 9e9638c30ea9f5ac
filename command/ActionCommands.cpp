// The commands that show the stored tree and change it: tree, add, edit, remove, group.

#include "command/ActionWords.h"
#include "command/RunningAgent.h"
#include "execute/restic/Repository.h"

namespace corvana {

namespace {

std::string typeText(std::int64_t type) {
  if (type == 2) return "copy";
  if (type == 3) return "synchronise";
  return "type " + std::to_string(type);
}

ZAN_Value nodesAsValue(const ProgrammedAction& group, CommandHome& home,
                       const Circumstances& circumstances) {
  std::vector<ZAN_Value> nodes;
  for (const auto& child : group.getChildrenList()) {
    const ZAN_Value& settings = child->getSettings();
    ZAN_Value node = ZAN_Value::dictionary({{"reference", child->getReference()},
                                            {"title", child->getTitle()},
                                            {"shortcut", child->getShortcut()},
                                            {"group", child->isGroup()}});
    if (child->isGroup()) {
      node.setValue("children", nodesAsValue(*child, home, circumstances));
    } else {
      const auto run = home.nextRun(child->schedule());
      const Hold hold = run ? circumstances.holds(child->getActionContext()) : Hold::none;
      std::vector<ZAN_Value> sources;
      for (const FolderDescription& source : ActionsTools::getSourcesForAction(settings)) {
        sources.emplace_back(source.path());
      }
      node.setValue("type", child->actionType());
      node.setValue("automatic", child->schedule().automatic);
      node.setValue("schedule", home.scheduleText(settings));
      node.setValue("next", run ? ZAN_Value(run->date) : ZAN_Value());
      node.setValue("held", nameOf(hold));
      node.setValue("shutdown", run && run->shutDown);
      node.setValue("context", static_cast<std::int64_t>(child->getActionContext()));
      node.setValue("sources", ZAN_Value::array(std::move(sources)));
      const FolderDescription destination = ActionsTools::getDestinationForAction(settings);
      if (!destination.isNull()) node.setValue("destination", destination.path());
      if (settings.contains(RepositoryKey::address))
        node.setValue("destination", settings.string(RepositoryKey::address));
    }
    nodes.push_back(std::move(node));
  }
  return ZAN_Value::array(std::move(nodes));
}

constexpr std::string_view kNodeLines =
    "{*[{reference}] {title}{shortcut? ({shortcut})}"
    "{group?, {children!an empty }group\n{children:nodes}}"
    "{group!, {type:type}\n    {schedule}\n{next?    next: {next:next}{:held}\n}"
    "{sources*    from {}\n}{:destination}}}";

std::string indented(const std::string& lines) {
  std::string text;
  for (std::size_t start = 0; start < lines.size();) {
    const std::size_t end = lines.find('\n', start) + 1;
    text += "    " + lines.substr(start, end - start);
    start = end;
  }
  return text;
}

/// Edits the stored tree and tells the agent.
Outcome edited(CommandHome& home, const std::function<Outcome(ProgrammedAction& root)>& edit) {
  Outcome done = home.tree().editStoredTree(edit);
  if (done) tellAgentThatActionListChanged();
  return done;
}

std::string named(std::int64_t reference, const std::string& title) {
  return std::to_string(reference) + ": " + printable(title) + '\n';
}

/// The one word that is left, as a reference.
Result<std::int64_t> theReference(Arguments& arguments) {
  const auto words = arguments.words(1, 1);
  if (!words) return words.error();
  return referenceFrom(words->front());
}

Error noSuchReference(std::int64_t reference) {
  return {ErrorKind::absent, std::to_string(reference) + ": no action or group has this reference"};
}

}  // namespace

Answer treeCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  if (const auto words = arguments.words(0, 0); !words) return wrongWords(words.error());
  CommandHome home(console);
  if (home.isThere()) {
    home.tree().rootItem();
    if (!home.store().tree().actionsListWasReadable()) {
      return Error{ErrorKind::unreadable,
                   home.store().folder().pathOf(DataFolder::kActions) + ": cannot be read"};
    }
  }
  const Circumstances circumstances = RunningAgent(home).circumstances();
  const ZAN_Value nodes = home.isThere() ? nodesAsValue(home.tree().rootItem(), home, circumstances)
                                         : ZAN_Value::array();
  TextForm form(home.calendar());
  form.with("held", [&](const ZAN_Value& node) {
    const std::string held = heldText(node, circumstances);
    return held.empty() ? held : " (" + held + ')';
  });
  form.with("type", [](const ZAN_Value& type) { return typeText(type.integerValue()); });
  form.with("next", [&](const ZAN_Value& date) {
    return date.doubleValue() <= home.now() ? "now" : home.dateText(date.doubleValue());
  });
  form.with("destination", [](const ZAN_Value& node) {
    return node.contains("destination") ? "    to " + printable(node.string("destination")) + '\n'
                                        : std::string();
  });
  form.with("nodes",
            [&](const ZAN_Value& children) { return indented(form.fill(kNodeLines, children)); });
  return {nodes, nodes.empty() ? "no actions\n" : form.fill(kNodeLines, nodes)};
}

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
  // A fresh home begins as with the first start of the agent.
  if (!home.isThere()) home.store().createMissingDataFiles();

  action.setTitle(title);
  ZAN_Value record;
  const Outcome done = edited(home, [&](ProgrammedAction& root) -> Outcome {
    auto group = groupWithReference(root, action.group().value_or(0));
    if (!group) return group.error();
    record = newActionRecord(title, home.now());
    if (Outcome applied = action.applyTo(record, home); !applied) return applied;
    if (Outcome runs = action.checkThatItRuns(record, home, console); !runs) return runs;
    if (const auto dispute = checkCopies(root, record)) return dispute->error();
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
  const auto reference = theReference(arguments);
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
      return Error{ErrorKind::refused, std::to_string(*reference) +
                                           ": a group has only --title, --shortcut and --group"};
    }
    record = node->getSettings();
    if (Outcome applied = action.applyTo(record, home); !applied) return applied;
    if (Outcome runs = action.checkThatItRuns(record, home, console); !runs) return runs;
    record.setValue("SaveEditDate", ZAN_Value::date(home.now()));
    if (action.changesCopies()) {
      if (const auto dispute = checkCopies(root, record)) return dispute->error();
    }
    node->changeSettings(record);
    if (!action.group()) return {};
    auto group = groupWithReference(root, *action.group());
    if (!group) return group.error();
    if (*group == node || (*group)->isDescendantOfNode(*node)) {
      return Error{ErrorKind::refused,
                   std::to_string(*reference) + ": a group cannot lie in itself"};
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
  const auto reference = theReference(arguments);
  if (!reference) return wrongWords(reference.error());
  CommandHome home(console);
  if (!home.isThere()) return noSuchReference(*reference);

  std::string title;
  const Outcome done = edited(home, [&](ProgrammedAction& root) -> Outcome {
    ProgrammedAction* node = root.actionOrGroupForReference(*reference);
    if (node == nullptr) return noSuchReference(*reference);
    if (node->numberOfChildren() > 0 && !force) {
      return Error{ErrorKind::refused, std::to_string(*reference) +
                                           ": the group is not empty (--force removes all in it)"};
    }
    title = node->getTitle();
    node->removeFromList();
    return {};
  });
  if (!done) return done.error();
  return Answer::ofText("removed " + named(*reference, title));
}

Answer confirmCommand(Arguments& arguments, const Console& console) {
  const auto reference = theReference(arguments);
  if (!reference) return wrongWords(reference.error());
  CommandHome home(console);
  if (!home.isThere()) return noSuchReference(*reference);

  std::int64_t count = 0;
  const Outcome done = edited(home, [&](ProgrammedAction& root) -> Outcome {
    const auto confirmed = confirmDeletions(root, *reference);
    if (!confirmed) return confirmed.error();
    count = *confirmed;
    return {};
  });
  if (!done) return done.error();
  return Answer::ofText("confirmed " + std::to_string(*reference) + ": its next run may delete " +
                        std::to_string(count) + " files\n");
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
