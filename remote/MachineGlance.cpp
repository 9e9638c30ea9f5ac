#include "remote/MachineGlance.h"

#include <map>

#include "actions/ActionsTools.h"
#include "actions/ProgrammedAction.h"
#include "core/record/Records.h"
#include "core/work/AgeAlarm.h"
#include "core/work/Work.h"

namespace corvana {

namespace {

ZAN_Value attentionOf(Records& m, const Work& work, const ProgrammedAction::Nodes& actions) {
  ZAN_Value list = ZAN_Value::array();
  for (const auto& failure : m.state.mFailures)
    list.append(ZAN_Value::dictionary({{"kind", "failed"},
                                       {"ref", failure.ref},
                                       {"title", m.tree.titleOf(failure.ref)},
                                       {"code", failure.code}}));
  for (const ProgrammedAction* action : actions)
    if (const auto since =
            AgeAlarm::overdueSince(*action, work.evaluation.calendar(), m.platform.clock.now()))
      list.append(ZAN_Value::dictionary({{"kind", "overdue"},
                                         {"ref", action->getReference()},
                                         {"title", action->getTitle()},
                                         {"since", ZAN_Value::date(*since)}}));
  for (const ZAN_Value& text : m.storage.lasting().elements())
    list.append(ZAN_Value::dictionary({{"kind", "storage"}, {"text", text}}));
  return list;
}

}  // namespace

ZAN_Value MachineGlance::of(Records& m, const Work& work, AgentAnswers& answers) {
  const ZAN_Value status = answers.status();
  ZAN_Value glance = ZAN_Value::dictionary({{"date", ZAN_Value::date(m.platform.clock.now())}});
  for (const char* key : {"enabled", "disabledWhenDone", "paused", "context", "executing",
                          "queueCount", "nextDate", "hold", "current"})
    if (status.contains(key)) glance.setValue(key, status[key]);

  std::map<std::int64_t, ZAN_Value> next;
  const ZAN_Value coming = answers.next();
  for (const ZAN_Value& one : coming.elements())
    if (one.contains("date")) next.emplace(one.integer("ref"), one["date"]);

  ProgrammedAction::Nodes actions;
  m.tree.rootItem().getListOfAllProgrammedActions(actions);
  const std::size_t leftOut = actions.size() - std::min(actions.size(), kMostActions);
  actions.resize(actions.size() - leftOut);
  ZAN_Value list = ZAN_Value::array();
  for (const ProgrammedAction* action : actions) {
    const ZAN_Value& settings = action->getSettings();
    ZAN_Value one = ZAN_Value::dictionary(
        {{"ref", action->getReference()},
         {"title", action->getTitle()},
         {"mode", action->actionType()},
         {"launchable", settings.integer("TriggerPreventRemoteLaunch") == 0}});
    if (const auto success = ActionsTools::getLastSuccessDateForSettings(settings))
      one.setValue("lastSuccess", ZAN_Value::date(*success));
    const auto date = next.find(action->getReference());
    if (date != next.end()) one.setValue("next", date->second);
    list.append(std::move(one));
  }
  glance.setValue("actions", std::move(list));
  glance.setValue("leftOut", static_cast<std::int64_t>(leftOut));
  glance.setValue("attention", attentionOf(m, work, actions));
  return glance;
}

}  // namespace corvana
