# What `cmake --install` puts under the prefix: the libraries with SONAME and version, the public
# headers, the programs, the simulator's scenarios, the docs, a pkg-config file, a CMake package
# (find_package(atapi) gives atapi::atapi) and the AT server's systemd unit. Directories are
# installed whole, so headers, scenarios and docs added later are installed too.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(ATAPI_SYSTEMD_UNITDIR "lib/systemd/system" CACHE STRING
    "Where the atserver unit goes, relative to the prefix (systemd also reads /usr/local/lib/systemd/system)")

set_target_properties(atapi atplatform PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}
  # libatapi finds libatplatform beside itself wherever the tree is installed.
  INSTALL_RPATH "$ORIGIN")
install(TARGETS atapi atplatform EXPORT atapi-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ ${PROJECT_SOURCE_DIR}/platform/include/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")

# The daemon in sbin, the client and the simulator in bin; each finds the libraries through a
# run path relative to itself, so a tree installed anywhere (or unpacked in a firmware image)
# runs without ldconfig or LD_LIBRARY_PATH.
file(RELATIVE_PATH atapi_bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
foreach(program atserver atctl modemsim)
  if(TARGET ${program})
    set_target_properties(${program} PROPERTIES INSTALL_RPATH "$ORIGIN/${atapi_bin_to_lib}")
    if(program STREQUAL "atserver")
      install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
    else()
      install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    endif()
  endif()
endforeach()
if(TARGET modemsim)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/sim/scenarios/ DESTINATION ${CMAKE_INSTALL_DATADIR}/atapi/scenarios)
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})

# CMake package: relocatable by construction.
set(atapi_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/atapi)
install(EXPORT atapi-targets NAMESPACE atapi:: DESTINATION ${atapi_cmake_dir})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/atapi-config.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/atapi-config.cmake INSTALL_DESTINATION ${atapi_cmake_dir})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/atapi-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/atapi-config.cmake ${CMAKE_CURRENT_BINARY_DIR}/atapi-config-version.cmake
  DESTINATION ${atapi_cmake_dir})

# The pkg-config file and the unit hold absolute paths, so they are written at install time,
# for the prefix given to `cmake --install --prefix` rather than the one configured.
function(atapi_install_configured template destination)
  get_filename_component(name ${template} NAME_WLE)
  install(CODE "
    set(prefix \"\${CMAKE_INSTALL_PREFIX}\")
    set(libdir \"\${prefix}/${CMAKE_INSTALL_LIBDIR}\")
    set(includedir \"\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}\")
    set(sbindir \"\${prefix}/${CMAKE_INSTALL_SBINDIR}\")
    set(docdir \"\${prefix}/${CMAKE_INSTALL_DOCDIR}\")
    set(version \"${PROJECT_VERSION}\")
    set(out \"\$ENV{DESTDIR}\${prefix}/${destination}/${name}\")
    message(STATUS \"Installing: \${out}\")
    configure_file(\"${template}\" \"\${out}\" @ONLY)
    list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${out}\")")
endfunction()
atapi_install_configured(${CMAKE_CURRENT_LIST_DIR}/atapi.pc.in ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(TARGET atserver)
  atapi_install_configured(${CMAKE_CURRENT_LIST_DIR}/atserver.service.in ${ATAPI_SYSTEMD_UNITDIR})
endif()
