# The installed tree, consumed the way a router daemon's build consumes it (pkg-config and
# find_package), in this build's own architecture. Not for sanitizer builds: their libraries need
# the sanitizer's runtime loaded first, which a plain consumer program does not do, and no
# installed tree is made from them.
if(TARGET atserver AND TARGET modemsim AND TARGET atctl AND NOT ATAPI_SANITIZE AND NOT ATAPI_TSAN)
  set(atapi_consumer_args)
  if(CMAKE_TOOLCHAIN_FILE)
    list(APPEND atapi_consumer_args -DCMAKE_TOOLCHAIN_FILE=${CMAKE_TOOLCHAIN_FILE})
  endif()
  if(ATAPI_ARMHF_SYSROOT)
    list(APPEND atapi_consumer_args -DATAPI_ARMHF_SYSROOT=${ATAPI_ARMHF_SYSROOT})
  endif()
  list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
  add_test(NAME install_consume COMMAND ${CMAKE_CURRENT_LIST_DIR}/install/consume.sh ${PROJECT_BINARY_DIR}
           ${CMAKE_C_COMPILER} "${CMAKE_EXE_LINKER_FLAGS}" "${emulator}" ${atapi_consumer_args})
  set_tests_properties(install_consume PROPERTIES RUN_SERIAL ON TIMEOUT 300)
endif()
