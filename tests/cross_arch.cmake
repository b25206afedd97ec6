# A cross build whose test programs run under an emulator: the queues shared between this build's
# programs and those of an x86_64 build of the same sources (scripts/cross.sh names it).
set(ATAPI_NATIVE_PEER_BUILD "" CACHE PATH "An x86_64 build of atserver, atctl and modemsim to talk to")
if(CMAKE_CROSSCOMPILING_EMULATOR AND ATAPI_NATIVE_PEER_BUILD AND TARGET atserver AND TARGET atctl)
  add_test(NAME cross_arch COMMAND ${CMAKE_CURRENT_LIST_DIR}/e2e/cross_arch.sh
           ${ATAPI_NATIVE_PEER_BUILD} ${CMAKE_BINARY_DIR}/emulated ${PROJECT_SOURCE_DIR}/sim/scenarios/default.scn)
  set_tests_properties(cross_arch PROPERTIES RUN_SERIAL ON TIMEOUT 300)
endif()
