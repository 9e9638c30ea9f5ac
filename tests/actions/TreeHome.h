#pragma once

#include <string>

#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "platform/simulated/SimulatedPlatform.h"

namespace corvana {

/// A home folder with a tree in it, as one program sees it. A second one on the same machine is
/// another program.
struct TreeHome {
  explicit TreeHome(SimulatedPlatform& machine, ZAN_FileWriter::StepHook hook = {})
      : store(machine.clock, machine.machine, machine.systemLog, std::move(hook)),
        tree(store.tree(), machine.clock, machine.systemLog, texts) {}

  ZAN_StringTable texts{ZAN_StringTable::Entries{{"ActionCopy", "%@ copy"}}};
  ActionStore store;
  ActionTree tree;
};

inline ZAN_Value actionRecord(std::string_view title, int reference) {
  return ZAN_Value::dictionary({{"Title", title}, {"Ref", reference}, {"Mode", 2}});
}

/// "A B(C) D": titles depth-first, a group's children in brackets.
inline std::string outline(const ProgrammedAction& node) {
  std::string text;
  for (const auto& child : node.getChildrenList()) {
    if (!text.empty()) text += ' ';
    text += child->getTitle();
    if (child->isGroup()) text += "(" + outline(*child) + ")";
  }
  return text;
}

}  // namespace corvana
