# The tree of bundles that the programs find each other by, in the build tree as installed:
#   Corvana 9.app/Contents/MacOS/Corvana 9
#   Corvana 9.app/Contents/Resources/
#     Corvana 9 Scheduler.app/Contents/{MacOS,Resources}
#     Corvana 9 Execute.app, Corvana 9 Shutdown.app
#     Corvana 9 Launcher.app
#     tools/, adminlauncher, Corvana 9.cva9resource

set(CORVANA_APP "${CMAKE_BINARY_DIR}/Corvana 9.app")
set(CORVANA_APP_RESOURCES "${CORVANA_APP}/Contents/Resources")
set(CORVANA_TOOLS "${CORVANA_APP_RESOURCES}/tools")

# corvana_bundle(target "Corvana 9 Scheduler"): the program becomes the executable of the bundle of that name.
function(corvana_bundle target name)
  set(bundle "${CORVANA_APP_RESOURCES}/${name}.app/Contents")
  set_target_properties(${target} PROPERTIES OUTPUT_NAME "${name}" RUNTIME_OUTPUT_DIRECTORY "${bundle}/MacOS")
  # The agent looks for the folder, whether there is something in it or not.
  file(MAKE_DIRECTORY "${bundle}/Resources")
  set_property(GLOBAL APPEND PROPERTY CORVANA_BUNDLED ${target})
endfunction()

# corvana_main_application(target): the program becomes the executable of the bundle that holds all others, with the
# launcher and the data file that belong to it.
function(corvana_main_application target)
  set_target_properties(${target} PROPERTIES OUTPUT_NAME "Corvana 9"
                        RUNTIME_OUTPUT_DIRECTORY "${CORVANA_APP}/Contents/MacOS")
  set(launcher "${CORVANA_APP_RESOURCES}/Corvana 9 Launcher.app/Contents/MacOS")
  file(MAKE_DIRECTORY "${launcher}")
  file(CREATE_LINK "../../../../MacOS/Corvana 9" "${launcher}/Corvana 9 Launcher" SYMBOLIC)
  file(WRITE "${CORVANA_APP_RESOURCES}/Corvana 9.cva9resource" "Corvana 9 ${CMAKE_PROJECT_VERSION}\n")
  set_property(GLOBAL APPEND PROPERTY CORVANA_BUNDLED ${target})
endfunction()

# corvana_plugin(target "Corvana 9 Scheduler" name): a module that the program of that bundle opens when it needs it.
function(corvana_plugin target name plugin)
  set(bundle "${CORVANA_APP_RESOURCES}/${name}.app/Contents")
  set_target_properties(${target} PROPERTIES OUTPUT_NAME "${plugin}" PREFIX ""
                        LIBRARY_OUTPUT_DIRECTORY "${bundle}/PlugIns")
  set_property(GLOBAL APPEND PROPERTY CORVANA_BUNDLED ${target})
endfunction()

# corvana_tool(target name): the program becomes a system tool that the agent runs by that name.
function(corvana_tool target name)
  set_target_properties(${target} PROPERTIES OUTPUT_NAME "${name}" RUNTIME_OUTPUT_DIRECTORY "${CORVANA_TOOLS}")
  set_property(GLOBAL APPEND PROPERTY CORVANA_BUNDLED ${target})
endfunction()

# corvana_bundle_resource(file to): `file` (absolute) is copied to `to`, a path below the scheduler's resources.
function(corvana_bundle_resource file to)
  set(copy "${CORVANA_APP_RESOURCES}/Corvana 9 Scheduler.app/Contents/Resources/${to}")
  add_custom_command(OUTPUT "${copy}" DEPENDS "${file}" COMMAND ${CMAKE_COMMAND} -E copy "${file}" "${copy}"
                     COMMENT "Copying ${to}" VERBATIM)
  set_property(GLOBAL APPEND PROPERTY CORVANA_RESOURCES "${copy}")
endfunction()

# Call once, after every directory was added.
function(corvana_bundle_tree)
  file(MAKE_DIRECTORY "${CORVANA_TOOLS}")
  file(CREATE_LINK /usr/bin/pkexec "${CORVANA_APP_RESOURCES}/adminlauncher" SYMBOLIC)
  file(GLOB_RECURSE files CONFIGURE_DEPENDS RELATIVE ${CMAKE_SOURCE_DIR}/resources ${CMAKE_SOURCE_DIR}/resources/*)
  foreach(file ${files})
    if(NOT file MATCHES "(^|/)CMakeLists\\.txt$" AND NOT file MATCHES "^icons/")
      corvana_bundle_resource("${CMAKE_SOURCE_DIR}/resources/${file}" "${file}")
    endif()
  endforeach()
  include(${CMAKE_SOURCE_DIR}/cmake/Icons.cmake)
  get_property(copies GLOBAL PROPERTY CORVANA_RESOURCES)
  get_property(bundled GLOBAL PROPERTY CORVANA_BUNDLED)
  add_custom_target(bundle_resources DEPENDS ${copies})
  add_custom_target(bundles ALL DEPENDS bundle_resources)
  if(bundled)
    add_dependencies(bundles ${bundled})
  endif()

  install(DIRECTORY "${CORVANA_APP}" DESTINATION lib/corvana9 USE_SOURCE_PERMISSIONS)
  if(TARGET corvana9)
    install(PROGRAMS $<TARGET_FILE:corvana9> DESTINATION bin)
  endif()
  install(FILES "${CMAKE_SOURCE_DIR}/resources/icons/logo_cva_dialogs.svg" RENAME com.zan.corvana9.svg
          DESTINATION share/icons/hicolor/scalable/apps)
  set(templates "${CMAKE_SOURCE_DIR}/cmake/install")
  install(CODE "set(CORVANA_TEMPLATES \"${templates}\")")
  install(SCRIPT ${templates}/install.cmake)
endfunction()
