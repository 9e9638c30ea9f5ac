# Runs at installation, when the prefix is known: the links in bin/, the ways to start the agent, how long a
# shut-down waits, and the right of the wake-up helper.

set(root "$ENV{DESTDIR}")
set(program "lib/corvana9/Corvana 9.app/Contents/Resources/Corvana 9 Scheduler.app/Contents/MacOS/Corvana 9 Scheduler")
set(command "${CMAKE_INSTALL_PREFIX}/bin/corvana9-scheduler")
set(application "${CMAKE_INSTALL_PREFIX}/bin/corvana9-app")

file(MAKE_DIRECTORY "${root}${CMAKE_INSTALL_PREFIX}/bin")
file(CREATE_LINK "../${program}" "${root}${command}" SYMBOLIC)
message(STATUS "Installing: ${root}${command}")
file(CREATE_LINK "../lib/corvana9/Corvana 9.app/Contents/MacOS/Corvana 9" "${root}${application}" SYMBOLIC)
message(STATUS "Installing: ${root}${application}")

# Desktops look for autostart entries below /etc, wherever else a system prefix puts its configuration.
if(CMAKE_INSTALL_PREFIX MATCHES "^/usr(/local)?/?$")
  set(autostart /etc/xdg/autostart)
else()
  set(autostart "${CMAKE_INSTALL_PREFIX}/etc/xdg/autostart")
endif()

function(corvana_write name folder)
  file(READ "${CORVANA_TEMPLATES}/${name}.in" text)
  string(REPLACE "@COMMAND@" "${command}" text "${text}")
  string(REPLACE "@APPLICATION@" "${application}" text "${text}")
  file(WRITE "${root}${folder}/${name}" "${text}")
  message(STATUS "Installing: ${root}${folder}/${name}")
endfunction()

corvana_write(corvana9-scheduler.desktop "${autostart}")
corvana_write(com.zan.corvana9.desktop "${CMAKE_INSTALL_PREFIX}/share/applications")
corvana_write(com.zan.corvana9.metainfo.xml "${CMAKE_INSTALL_PREFIX}/share/metainfo")
corvana_write(corvana9-scheduler.service "${CMAKE_INSTALL_PREFIX}/share/systemd/user")
# The login manager looks below /usr and /usr/local; elsewhere the file is there to be copied.
corvana_write(corvana9-shutdown-delay.conf "${CMAKE_INSTALL_PREFIX}/lib/systemd/logind.conf.d")

set(helper "${root}${CMAKE_INSTALL_PREFIX}/lib/corvana9/Corvana 9.app/Contents/Resources/tools/wakeup")
find_program(setcap setcap PATHS /usr/sbin /sbin)
set(failed 1)
if(setcap)
  execute_process(COMMAND "${setcap}" cap_wake_alarm+ep "${helper}" RESULT_VARIABLE failed OUTPUT_QUIET ERROR_QUIET)
endif()
if(failed)
  message(STATUS "Without this the machine is not woken for actions: sudo setcap cap_wake_alarm+ep '${helper}'")
endif()
list(APPEND CMAKE_INSTALL_MANIFEST_FILES "${command}" "${application}" "${autostart}/corvana9-scheduler.desktop"
     "${CMAKE_INSTALL_PREFIX}/share/applications/com.zan.corvana9.desktop"
     "${CMAKE_INSTALL_PREFIX}/share/metainfo/com.zan.corvana9.metainfo.xml"
     "${CMAKE_INSTALL_PREFIX}/lib/systemd/logind.conf.d/corvana9-shutdown-delay.conf"
     "${CMAKE_INSTALL_PREFIX}/share/systemd/user/corvana9-scheduler.service")
