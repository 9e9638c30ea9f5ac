#include "actions/ActionContext.h"

#include "ZANCocoaFramework/ZAN_StringTable.h"

namespace corvana {

const std::string& contextName(ActionContext context, const ZAN_StringTable& texts) {
  switch (context) {
    case ActionContext::none:
      return texts.text("NoContext");
    case ActionContext::office:
      return texts.text("OfficeContext");
    case ActionContext::home:
      return texts.text("HomeContext");
    case ActionContext::nomad:
      break;
  }
  return texts.text("NomadContext");
}

std::vector<std::string> contextNames(const ZAN_StringTable& texts) {
  std::vector<std::string> names;
  for (const ActionContext context :
       {ActionContext::none, ActionContext::office, ActionContext::home, ActionContext::nomad})
    names.push_back(contextName(context, texts));
  return names;
}

}  // namespace corvana
