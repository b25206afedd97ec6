# Cross builds: ctest runs each test program under CMAKE_CROSSCOMPILING_EMULATOR by itself, but a
# program that a test starts on its own (atserver, modemsim, atctl, named in the test by a
# definition such as ATSERVER_BIN="$<TARGET_FILE:atserver>") would go straight to the host kernel,
# which cannot run it without binfmt_misc. So every program of the build gets a launcher script,
# <build>/emulated/<name>, that runs it under the emulator, and every definition naming a program
# names its launcher instead. Tests added later are covered as long as they name programs this way.
if(NOT CMAKE_CROSSCOMPILING OR NOT CMAKE_CROSSCOMPILING_EMULATOR)
  return()
endif()

function(atapi_collect_targets dir out)
  get_property(found DIRECTORY ${dir} PROPERTY BUILDSYSTEM_TARGETS)
  get_property(subdirs DIRECTORY ${dir} PROPERTY SUBDIRECTORIES)
  foreach(sub ${subdirs})
    atapi_collect_targets(${sub} below)
    list(APPEND found ${below})
  endforeach()
  set(${out} ${found} PARENT_SCOPE)
endfunction()

atapi_collect_targets(${PROJECT_SOURCE_DIR} atapi_all_targets)
list(JOIN CMAKE_CROSSCOMPILING_EMULATOR "' '" atapi_emulator_words)
set(atapi_programs)
foreach(t ${atapi_all_targets})
  get_target_property(type ${t} TYPE)
  if(type STREQUAL "EXECUTABLE")
    list(APPEND atapi_programs ${t})
    file(GENERATE OUTPUT ${CMAKE_BINARY_DIR}/emulated/${t}
         CONTENT "#!/bin/sh\nexec '${atapi_emulator_words}' '$<TARGET_FILE:${t}>' \"$@\"\n"
         FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                          WORLD_READ WORLD_EXECUTE)
  endif()
endforeach()
foreach(t ${atapi_all_targets})
  get_target_property(defs ${t} COMPILE_DEFINITIONS)
  if(NOT defs)
    continue()
  endif()
  set(rewritten "${defs}")
  foreach(p ${atapi_programs})
    string(REPLACE "$<TARGET_FILE:${p}>" "${CMAKE_BINARY_DIR}/emulated/${p}" rewritten "${rewritten}")
  endforeach()
  if(NOT rewritten STREQUAL defs)
    set_property(TARGET ${t} PROPERTY COMPILE_DEFINITIONS "${rewritten}")
  endif()
endforeach()
