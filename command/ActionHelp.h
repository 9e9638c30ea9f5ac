#pragma once

#include <string_view>

namespace corvana {

/// What the help of `add` and `edit` says about the words for an action.
inline constexpr std::string_view kActionHelp =
    "  --title TEXT               another title (edit)\n"
    "  --source FOLDER            what is copied; may be given several times\n"
    "  --destination FOLDER       where to\n"
    "  --mode copy|synchronise    synchronise also deletes what is gone from the source\n"
    "  --context WHERE            office, home or nomad: it runs in this context alone; any: in "
    "all\n"
    "  --shortcut KEY             a short word to find it by\n"
    "  --group REF                the group it lies in; 0 is the top\n"
    "  --force                    take folders that are not there\n"
    "WHEN it runs (without any of these a new action runs only when it is launched, and an edited\n"
    "one as before):\n"
    "  --daily 08:00              every day\n"
    "  --weekly mon,thu           on days of the week, with --at 18:30\n"
    "  --monthly WHEN             with --at 18:30; WHEN is 1,15 (days), first-day, last-day,\n"
    "                             first-working-day, last-working-day, first-fri, second-fri or\n"
    "                             last-fri\n"
    "  --yearly 29.2.             once a year, with --at 18:30\n"
    "  --every 15m                every 15 minutes (or 2h)\n"
    "  --hourly                   at every full hour\n"
    "  --on-mount                 when one of its volumes is mounted\n"
    "  --on-idle 20               when nobody has used the machine for 20 minutes\n"
    "  --on-quit APP              when an application quits\n"
    "  --at-startup               when the agent starts\n"
    "  --at-shutdown              before the machine is shut down\n"
    "  --manual                   only when it is launched\n"
    "  --hours 08:00-18:00        only between these times (any: at all times)\n";

}  // namespace corvana
