# 32-bit ARM hard-float Linux (armv7, 4-byte long), built with Debian's cross compiler
# (gcc-arm-linux-gnueabihf, g++-arm-linux-gnueabihf). Test programs run under qemu-arm in user mode.
#
# The target's libraries (SQLite, GoogleTest) come either from the machine's multiarch tree
# (libsqlite3-dev:armhf and friends installed with apt) or from a private tree of unpacked armhf
# packages named by ATAPI_ARMHF_SYSROOT, which is what scripts/cross.sh makes.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(ATAPI_TARGET_TRIPLET arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${ATAPI_TARGET_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${ATAPI_TARGET_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${ATAPI_TARGET_TRIPLET})

# GCC notes that passing some std::vector iterators changed in GCC 7.1; everything here is built
# by one compiler, so the notes say nothing about this build.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")

# The emulator takes the target's loader and C++ runtime from the cross compiler's tree.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/${ATAPI_TARGET_TRIPLET})

set(ATAPI_ARMHF_SYSROOT "$ENV{ATAPI_ARMHF_SYSROOT}" CACHE PATH
    "Unpacked armhf packages (usr/include, usr/lib/arm-linux-gnueabihf); empty: the multiarch tree")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ATAPI_ARMHF_SYSROOT)
if(ATAPI_ARMHF_SYSROOT)
  set(atapi_target_libdir ${ATAPI_ARMHF_SYSROOT}/usr/lib/${ATAPI_TARGET_TRIPLET})
  list(PREPEND CMAKE_PREFIX_PATH ${ATAPI_ARMHF_SYSROOT}/usr)
  # The linker follows libatplatform's own dependency (SQLite) there too.
  set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${atapi_target_libdir}")
  set(CMAKE_SHARED_LINKER_FLAGS_INIT "-Wl,-rpath-link,${atapi_target_libdir}")
  # Build-tree programs find SQLite through their run paths; installed ones through this.
  list(APPEND CMAKE_CROSSCOMPILING_EMULATOR -E LD_LIBRARY_PATH=${atapi_target_libdir})
endif()
