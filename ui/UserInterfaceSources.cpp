#include "ui/UserInterfaceSources.h"

#include "core/machine/MachineDuties.h"
#include "core/record/Records.h"
#include "platform/Input.h"
#include "platform/Network.h"

namespace corvana {

UserInterfaceSources::UserInterfaceSources(Records& recordsGiven, Work& workGiven,
                                           MachineDuties& machineGiven,
                                           const LaunchStep& launchStepGiven,
                                           SchedulerCommands& commandsGiven,
                                           StatusItem& statusItemGiven)
    : records(recordsGiven),
      work(workGiven),
      machine(machineGiven),
      launchStep(launchStepGiven),
      commands(commandsGiven),
      statusItem(statusItemGiven),
      lacking([&r = records, &wakeUp = machine.wakeUp](Ability ability) {
        if (ability == Ability::wake) return wakeUp.hindrance();
        if (ability == Ability::network && r.platform.services.isAway())
          return r.texts.text("LackingNetwork");
        const bool needsInput = ability == Ability::seeKeyboard || ability == Ability::seePointer;
        return needsInput && !r.platform.input.pointer() ? r.texts.text("LackingInput")
                                                         : std::string();
      }) {}

}  // namespace corvana
