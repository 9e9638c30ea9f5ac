# Helpers shared by every directory of the tree.

set(CORVANA_SANITIZE "" CACHE STRING "sanitizers for every target, as in -fsanitize=")
option(CORVANA_FUZZ "build the libFuzzer targets instead of the tests" OFF)

option(CORVANA_PRECOMPILE "read the headers of the standard library and of the tests once for all files" OFF)

find_program(CORVANA_CCACHE ccache)
if(CORVANA_CCACHE)
  # Without the first it keeps nothing that was compiled with a precompiled header, without the others it takes the
  # same source in another checkout for another one.
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros
      CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} CCACHE_NOHASHDIR=1 ${CORVANA_CCACHE})
  set(CMAKE_C_COMPILER_LAUNCHER ${CORVANA_CCACHE})
endif()
find_program(CORVANA_LLD ld.lld)
if(CORVANA_LLD)
  add_link_options(-fuse-ld=lld)
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Werror -Wnon-virtual-dtor -Woverloaded-virtual)
# GCC 12 sees overlaps in the concatenation of texts that are not there.
add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
# Paths relative to the tree make objects equal in every checkout, so that one ccache serves them all.
add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}=.)
# What others may feed a program must not become more than a crash. Everything is bound at the start, since the
# tables of a program are read-only from then on.
include(CheckPIESupported)
check_pie_supported()
add_link_options(LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
add_compile_options("$<$<CONFIG:Release>:-fstack-protector-strong;-fstack-clash-protection;-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
if(CORVANA_SANITIZE)
  add_compile_options(-fsanitize=${CORVANA_SANITIZE} -fno-omit-frame-pointer)
  if(CORVANA_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
    # These look at every use of a pointer and take half of a build's time. The address sanitizer finds most of what
    # they would, and the fuzzers have them.
    add_compile_options($<$<CXX_COMPILER_ID:GNU>:-fno-sanitize=null$<COMMA>alignment$<COMMA>object-size$<COMMA>vptr>)
  endif()
  add_link_options(-fsanitize=${CORVANA_SANITIZE})
endif()
if(CORVANA_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# corvana_precompiled(name [LIBS libraries...] HEADERS headers...): the headers that the targets of one kind share.
function(corvana_precompiled name)
  cmake_parse_arguments(ARG "" "" "LIBS;HEADERS" ${ARGN})
  if(NOT CORVANA_PRECOMPILE)
    return()
  endif()
  file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp CONTENT "")
  add_library(${name} OBJECT ${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp)
  target_link_libraries(${name} PRIVATE ${ARG_LIBS})
  target_compile_options(${name} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
  target_precompile_headers(${name} PRIVATE ${ARG_HEADERS})
endfunction()

# The target reads them from there.
function(corvana_precompile target name)
  if(CORVANA_PRECOMPILE)
    target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
    target_precompile_headers(${target} REUSE_FROM ${name})
  endif()
endfunction()

# Name of the target of a room: core/work -> corvana_core_work.
function(corvana_room_target room out)
  string(REPLACE "/" "_" name "corvana_${room}")
  set(${out} ${name} PARENT_SCOPE)
endfunction()

# corvana_room(ROOMS rooms it may see... [LIBS libraries...] [HEADERS headers...])
# A static library of every .cpp of the directory, without its subdirectories. HEADERS: precompiled for it alone.
function(corvana_room)
  cmake_parse_arguments(ARG "" "" "ROOMS;LIBS;HEADERS" ${ARGN})
  file(RELATIVE_PATH room ${CMAKE_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  corvana_room_target(${room} target)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  set(scope PUBLIC)
  if(sources)
    add_library(${target} STATIC ${sources})
  else()
    add_library(${target} INTERFACE)
    set(scope INTERFACE)
  endif()
  target_include_directories(${target} ${scope} ${CMAKE_SOURCE_DIR})
  foreach(other ${ARG_ROOMS})
    corvana_room_target(${other} other_target)
    target_link_libraries(${target} ${scope} ${other_target})
  endforeach()
  if(sources)
    if(ARG_HEADERS)
      target_precompile_headers(${target} PRIVATE ${ARG_HEADERS})
    else()
      corvana_precompile(${target} corvana_headers)
    endif()
    target_link_libraries(${target} PRIVATE ${ARG_LIBS})
  else()
    target_link_libraries(${target} INTERFACE ${ARG_LIBS})
  endif()
endfunction()

# corvana_engine(name): the room of this directory, execute/<name>, defines an engine (execute/engine/Engine.h).
function(corvana_engine name)
  set_property(GLOBAL APPEND PROPERTY CORVANA_ENGINES ${name})
endfunction()

# What is looked for are the faults of the programs: so a test takes half the time to compile.
function(corvana_test_options target)
  if(CORVANA_SANITIZE MATCHES "undefined")
    target_compile_options(${target} PRIVATE -O0 -fno-sanitize=undefined)
  endif()
endfunction()

# corvana_test(name ROOMS rooms... [LIBS libraries...] [SOURCES files...] [TIMEOUT seconds] [BUS])
# One binary and one ctest entry from every .cpp of the directory (or of SOURCES). BUS: it runs with a session
# bus of its own on which nothing is started by itself.
function(corvana_test name)
  cmake_parse_arguments(ARG "BUS" "TIMEOUT" "ROOMS;LIBS;SOURCES" ${ARGN})
  if(NOT ARG_SOURCES)
    file(GLOB ARG_SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  endif()
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 600)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR})
  foreach(other ${ARG_ROOMS})
    corvana_room_target(${other} other_target)
    target_link_libraries(${name} PRIVATE ${other_target})
  endforeach()
  target_link_libraries(${name} PRIVATE GTest::gmock_main Threads::Threads ${ARG_LIBS})
  # As the precompiled headers, whether it needs Qt or not.
  target_compile_options(${name} PRIVATE -fPIC)
  corvana_precompile(${name} corvana_test_headers)
  corvana_test_options(${name})
  if(ARG_BUS)
    add_test(NAME ${name} COMMAND dbus-run-session --config-file=${CMAKE_SOURCE_DIR}/tests/session-bus.conf
                                  -- $<TARGET_FILE:${name}>)
  else()
    add_test(NAME ${name} COMMAND ${name})
  endif()
  set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT})
endfunction()
