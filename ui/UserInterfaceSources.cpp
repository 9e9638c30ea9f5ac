#include "ui/UserInterfaceSources.h"

#include "core/drive/LaunchStep.h"
#include "core/machine/MachineDuties.h"
#include "core/record/Records.h"
#include "core/record/SchedulerCommands.h"
#include "core/work/Work.h"
#include "platform/Input.h"
#include "platform/Network.h"

namespace corvana {

UserInterfaceSources::UserInterfaceSources(Records& records, Work& work, MachineDuties& machine,
                                           const LaunchStep& launchStep,
                                           SchedulerCommands& commandsGiven,
                                           StatusItem& statusItemGiven)
    : platform(records.platform),
      commands(commandsGiven),
      state(records.state),
      preferences(records.preferences),
      store(records.store),
      tree(records.tree),
      history(records.history),
      log(records.log),
      messages(records.messages),
      queue(work.queue),
      evaluation(work.evaluation),
      supervisor(work.supervisor),
      survey(records.survey),
      volumes(work.volumes),
      mounter(machine.mounter),
      statusItem(statusItemGiven),
      texts(records.texts),
      strings(records.strings),
      statusInformation([&launchStep] { return launchStep.statusInformation(); }),
      launchHold([&launchStep] { return launchStep.holdText(); }),
      surveyLine([&work] { return work.supervisor.surveyLine(); }),
      lacking([&records, &machine](Ability ability) {
        if (ability == Ability::wake) return machine.wakeUp.hindrance();
        if (ability == Ability::network && records.platform.services.isAway())
          return records.texts.text("LackingNetwork");
        const bool needsInput = ability == Ability::seeKeyboard || ability == Ability::seePointer;
        return needsInput && !records.platform.input.pointer() ? records.texts.text("LackingInput")
                                                               : std::string();
      }),
      strayFolders([&machine] { return machine.folderSurvey.errorText(); }),
      strayFoldersDate([&machine] { return machine.folderSurvey.errorDate(); }),
      strayFoldersProgress([&machine] { return machine.folderSurvey.progressText(); }),
      repairAndContinue([&commandsGiven] { commandsGiven.repairAndContinueExecution(); }),
      freePercent([&machine] { return machine.freeSpace.lowSpacePercent(); }) {}

}  // namespace corvana
