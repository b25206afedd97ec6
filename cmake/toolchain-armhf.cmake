# 32-bit ARM hard-float Linux (armv7, 4-byte long), built with Debian's cross compiler
# (gcc-arm-linux-gnueabihf, g++-arm-linux-gnueabihf).
#
# The target's libraries (SQLite, GoogleTest) come either from the machine's multiarch tree
# (libsqlite3-dev:armhf and friends installed with apt) or from a private tree of unpacked armhf
# packages named by ATAPI_ARMHF_SYSROOT (what scripts/cross.sh makes; it needs no host package at
# the target's exact version). Test programs run under qemu-arm in user mode.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(ATAPI_TARGET_TRIPLET arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${ATAPI_TARGET_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${ATAPI_TARGET_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${ATAPI_TARGET_TRIPLET})

# Try-compiles and the consumer projects of an installed tree see the same settings.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ATAPI_ARMHF_SYSROOT)
set(ATAPI_ARMHF_SYSROOT "$ENV{ATAPI_ARMHF_SYSROOT}" CACHE PATH
    "Unpacked armhf packages (usr/include, usr/lib/arm-linux-gnueabihf); empty: the multiarch tree")
if(ATAPI_ARMHF_SYSROOT)
  list(PREPEND CMAKE_PREFIX_PATH ${ATAPI_ARMHF_SYSROOT}/usr)
endif()

# The emulator finds the target's loader and C++ runtime in the cross compiler's tree; libraries
# of the private tree are found through the build tree's run paths, or through this for an
# installed tree.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/${ATAPI_TARGET_TRIPLET})
if(ATAPI_ARMHF_SYSROOT)
  list(APPEND CMAKE_CROSSCOMPILING_EMULATOR
       -E LD_LIBRARY_PATH=${ATAPI_ARMHF_SYSROOT}/usr/lib/${ATAPI_TARGET_TRIPLET})
endif()

# GCC notes that passing some std::vector iterators changed in GCC 7.1; everything here is built
# by one compiler, so the notes say nothing about this build.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")

# The linker follows libatplatform's own dependency (SQLite) into the private tree too.
if(ATAPI_ARMHF_SYSROOT)
  set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${ATAPI_ARMHF_SYSROOT}/usr/lib/${ATAPI_TARGET_TRIPLET}")
  set(CMAKE_SHARED_LINKER_FLAGS_INIT "${CMAKE_EXE_LINKER_FLAGS_INIT}")
endif()
