#include "command/ActionWords.h"
#include "command/CommandHome.h"

namespace corvana {

namespace {

std::string typeText(std::int64_t type) {
  if (type == 2) return "copy";
  if (type == 3) return "synchronise";
  return "type " + std::to_string(type);
}

ZAN_Value nodesAsValue(const ProgrammedAction& group, CommandHome& home) {
  std::vector<ZAN_Value> nodes;
  for (const auto& child : group.getChildrenList()) {
    const ZAN_Value& settings = child->getSettings();
    ZAN_Value node = ZAN_Value::dictionary({{"reference", child->getReference()},
                                            {"title", child->getTitle()},
                                            {"shortcut", child->getShortcut()},
                                            {"group", child->isGroup()}});
    if (child->isGroup()) {
      node.setValue("children", nodesAsValue(*child, home));
    } else {
      bool shutDown = false;
      const auto date =
          home.tools().getNextScheduleDateForSettings(child->schedule(), false, &shutDown);
      std::vector<ZAN_Value> sources;
      for (const FolderDescription& source : ActionsTools::getSourcesForAction(settings)) {
        sources.emplace_back(source.path());
      }
      node.setValue("type", child->actionType());
      node.setValue("automatic", child->schedule().automatic);
      node.setValue("schedule", home.scheduleText(settings));
      node.setValue("next", date ? ZAN_Value(*date) : ZAN_Value());
      node.setValue("shutdown", shutDown);
      node.setValue("context", static_cast<std::int64_t>(child->getActionContext()));
      node.setValue("sources", ZAN_Value::array(std::move(sources)));
      const FolderDescription destination = ActionsTools::getDestinationForAction(settings);
      if (!destination.isNull()) node.setValue("destination", destination.path());
    }
    nodes.push_back(std::move(node));
  }
  return ZAN_Value::array(std::move(nodes));
}

constexpr std::string_view kNodeLines =
    "{*[{reference}] {title}{shortcut? ({shortcut})}"
    "{group?, {children!an empty }group\n{children:nodes}}"
    "{group!, {type:type}\n    {schedule}\n{next?    next: {next:next}\n}"
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
  const ZAN_Value nodes =
      home.isThere() ? nodesAsValue(home.tree().rootItem(), home) : ZAN_Value::array();
  TextForm form(home.calendar());
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

}  // namespace corvana
