# The pictures of resources/icons, drawn at build time: PNG at 1x and 2x, those of the menu bar in three styles.

find_program(CORVANA_RSVG rsvg-convert REQUIRED)

# corvana_picture(name size [style]): <name><Style>.png of `size` pixels and <name><Style>@2x.png of twice that.
function(corvana_picture name size)
  set(style "${ARGN}")
  set(icons "${CMAKE_SOURCE_DIR}/resources/icons")
  set(to "${CORVANA_APP_RESOURCES}/Corvana 9 Scheduler.app/Contents/Resources")
  set(inputs "${icons}/${name}.svg")
  set(sheet "")
  if(style)
    list(APPEND inputs "${icons}/${style}.css")
    set(sheet --stylesheet "${icons}/${style}.css")
  endif()
  math(EXPR twice "2 * ${size}")
  add_custom_command(OUTPUT "${to}/${name}${style}.png" "${to}/${name}${style}@2x.png"
    COMMAND ${CORVANA_RSVG} ${sheet} -w ${size} -h ${size} -o "${to}/${name}${style}.png" "${icons}/${name}.svg"
    COMMAND ${CORVANA_RSVG} ${sheet} -w ${twice} -h ${twice} -o "${to}/${name}${style}@2x.png" "${icons}/${name}.svg"
    DEPENDS ${inputs} COMMENT "Drawing ${name}${style}" VERBATIM)
  set_property(GLOBAL APPEND PROPERTY CORVANA_RESOURCES "${to}/${name}${style}.png" "${to}/${name}${style}@2x.png")
endfunction()

foreach(name Normal NormalTimer Disabled DisabledDiskChanged WillDisable Running Pause Survey)
  foreach(style "" Black White)
    corvana_picture(Menu${name} 22 ${style})
  endforeach()
endforeach()
corvana_picture(MenuAmber 22)
corvana_picture(MenuRed 22)
foreach(name Office Home Nomad)
  corvana_picture(Badge${name} 11)
endforeach()
corvana_picture(logo_cva_dialogs 48)
# Of the main application, in one ink that is coloured when it is drawn; named as the desktops' themes name theirs.
foreach(name chronometer dialog-warning document-open-recent drive-harddisk edit-find emblem-ok emblem-ok-light folder go-home
             go-previous list-add media-playback-pause media-playback-start media-playback-stop network-server pan-down
             preferences-system user-home view-more window-close x-office-calendar)
  corvana_picture(${name} 24)
endforeach()
# The large one of an empty page.
corvana_picture(chronometer-large 72)
