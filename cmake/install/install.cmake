# Runs at installation, when the prefix is known: the link in bin/ and the two ways to start the agent.

set(root "$ENV{DESTDIR}")
set(program "lib/corvana9/Corvana 9.app/Contents/Resources/Corvana 9 Scheduler.app/Contents/MacOS/Corvana 9 Scheduler")
set(command "${CMAKE_INSTALL_PREFIX}/bin/corvana9-scheduler")

file(MAKE_DIRECTORY "${root}${CMAKE_INSTALL_PREFIX}/bin")
file(CREATE_LINK "../${program}" "${root}${command}" SYMBOLIC)
message(STATUS "Installing: ${root}${command}")

# Desktops look for autostart entries below /etc, wherever else a system prefix puts its configuration.
if(CMAKE_INSTALL_PREFIX MATCHES "^/usr(/local)?/?$")
  set(autostart /etc/xdg/autostart)
else()
  set(autostart "${CMAKE_INSTALL_PREFIX}/etc/xdg/autostart")
endif()

function(corvana_write name folder)
  file(READ "${CORVANA_TEMPLATES}/${name}.in" text)
  string(REPLACE "@COMMAND@" "${command}" text "${text}")
  file(WRITE "${root}${folder}/${name}" "${text}")
  message(STATUS "Installing: ${root}${folder}/${name}")
endfunction()

corvana_write(corvana9-scheduler.desktop "${autostart}")
corvana_write(corvana9-scheduler.service "${CMAKE_INSTALL_PREFIX}/share/systemd/user")
list(APPEND CMAKE_INSTALL_MANIFEST_FILES "${command}" "${autostart}/corvana9-scheduler.desktop"
     "${CMAKE_INSTALL_PREFIX}/share/systemd/user/corvana9-scheduler.service")
