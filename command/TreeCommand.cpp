#include <ostream>

#include "ZANCocoaFramework/ZAN_Json.h"
#include "command/ActionWords.h"
#include "command/CommandHome.h"
#include "command/Commands.h"

namespace corvana {

namespace {

std::string typeText(std::int64_t type) {
  if (type == 2) return "copy";
  if (type == 3) return "synchronise";
  return "type " + std::to_string(type);
}

std::string pathOf(const ZAN_Value& folder) { return folder.string("VolumeFolderPath"); }

void printNodes(const ProgrammedAction& group, const CommandHome& home, const std::string& indent,
                std::ostream& out) {
  for (const auto& child : group.getChildrenList()) {
    const ZAN_Value& settings = child->getSettings();
    out << indent << '[' << child->getReference() << "] " << printable(child->getTitle());
    if (!child->getShortcut().empty()) out << " (" << printable(child->getShortcut()) << ')';
    if (child->isGroup()) {
      out << (child->numberOfChildren() == 0 ? ", an empty group\n" : ", group\n");
      printNodes(*child, home, indent + "    ", out);
      continue;
    }
    out << ", " << typeText(child->actionType()) << '\n' << indent << "    ";
    out << printable(scheduleInWords(settings, home.calendar())) << '\n';
    if (const auto date = home.tools().getNextScheduleDateForSettings(child->schedule(), false)) {
      out << indent << "    next: " << (*date <= home.now() ? "now" : home.dateText(*date)) << '\n';
    }
    const ZAN_Value destination = ActionsTools::getDestinationForAction(settings);
    for (const ZAN_Value& source : ActionsTools::getSourcesForAction(settings)) {
      out << indent << "    from " << printable(pathOf(source)) << '\n';
    }
    if (!destination.isNull()) out << indent << "    to " << printable(pathOf(destination)) << '\n';
  }
}

ZAN_Value nodesAsValue(const ProgrammedAction& group, const CommandHome& home) {
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
      for (const ZAN_Value& source : ActionsTools::getSourcesForAction(settings)) {
        sources.emplace_back(pathOf(source));
      }
      node.setValue("type", child->actionType());
      node.setValue("automatic", child->schedule().automatic);
      node.setValue("schedule", scheduleInWords(settings, home.calendar()));
      node.setValue("next", date ? ZAN_Value(*date) : ZAN_Value());
      node.setValue("shutdown", shutDown);
      node.setValue("context", child->getActionContext());
      node.setValue("sources", ZAN_Value::array(std::move(sources)));
      const ZAN_Value destination = ActionsTools::getDestinationForAction(settings);
      if (!destination.isNull()) node.setValue("destination", pathOf(destination));
    }
    nodes.push_back(std::move(node));
  }
  return ZAN_Value::array(std::move(nodes));
}

}  // namespace

int treeCommand(Arguments& arguments, const Console& console) {
  const bool json = arguments.json();
  if (const auto words = arguments.words(0, 0); !words) return wrongWords(console, words.error());
  CommandHome home(console);
  if (home.isThere()) {
    home.tree().rootItem();
    if (!home.store().tree().actionsListWasReadable()) {
      return failed(console,
                    {ErrorKind::unreadable,
                     home.store().folder().pathOf(DataFolder::kActions) + ": cannot be read"});
    }
  }
  if (json) {
    const auto text = ZAN_Json::jsonWithValue(
        home.isThere() ? nodesAsValue(home.tree().rootItem(), home) : ZAN_Value::array(),
        {.plain = true});
    if (!text) return failed(console, text.error());
    console.out << *text << '\n';
  } else if (!home.isThere() || home.tree().rootItem().numberOfChildren() == 0) {
    console.out << "no actions\n";
  } else {
    printNodes(home.tree().rootItem(), home, "", console.out);
  }
  return kDone;
}

}  // namespace corvana
