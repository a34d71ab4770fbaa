# What `cmake --install` puts in place, and the Debian packages CPack makes of
# it. Two components: Runtime (the tool, the shared library, the tool's man
# page) and Development (headers, static library, the link name of the shared
# library, dvrmodules.pc, the CMake package, the library's man page). The
# simulator and the fake platform have no install rule.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(DVR_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/dvr)
set(DVR_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/DVRModules)
set(DVR_PUBLIC_HEADERS
    ${PROJECT_SOURCE_DIR}/MODULES/COMMON/COMMON.h
    ${PROJECT_SOURCE_DIR}/MODULES/DEV/DEV.h
    ${PROJECT_SOURCE_DIR}/MODULES/DNS/DNS.h
    ${PROJECT_SOURCE_DIR}/I2C/DVR_I2C.h)

# Users compile against the same layouts as the library: 64-bit off_t and
# time_t (records and calls carry both on the 32-bit board).
foreach(target dvr_modules dvr_modules_shared)
  target_include_directories(${target} INTERFACE $<INSTALL_INTERFACE:${DVR_INSTALL_INCLUDEDIR}>)
  target_compile_definitions(${target} INTERFACE
    $<INSTALL_INTERFACE:_FILE_OFFSET_BITS=64> $<INSTALL_INTERFACE:_TIME_BITS=64>)
endforeach()
# The library is C++ inside; a C program linking the archive needs its runtime.
target_link_libraries(dvr_modules INTERFACE $<INSTALL_INTERFACE:stdc++>)

# The board's flash is small: its tool and shared library are always installed
# stripped, as if `cmake --install --strip` had been given.
if(DVR_BOARD)
  install(CODE "set(CMAKE_INSTALL_DO_STRIP TRUE)" COMPONENT Runtime)
endif()
install(TARGETS dvr_i2c RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Runtime)
install(TARGETS dvr_modules_shared EXPORT DVRModulesTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime
          NAMELINK_COMPONENT Development)
install(TARGETS dvr_modules EXPORT DVRModulesTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development)
install(FILES ${DVR_PUBLIC_HEADERS} DESTINATION ${DVR_INSTALL_INCLUDEDIR} COMPONENT Development)
install(FILES ${PROJECT_SOURCE_DIR}/man/dvr_i2c.1
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT Runtime)
install(FILES ${PROJECT_SOURCE_DIR}/man/dvrmodules.3
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT Development)

# The CMake package: find_package(DVRModules) gives DVRModules::dvrmodules
# (shared) and DVRModules::dvrmodules_static. Its paths are relative to the
# folder it is found in, so it works from any prefix and from a DESTDIR.
install(EXPORT DVRModulesTargets NAMESPACE DVRModules::
  DESTINATION ${DVR_INSTALL_CMAKEDIR} COMPONENT Development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/DVRModulesConfig.cmake.in
  ${PROJECT_BINARY_DIR}/DVRModulesConfig.cmake INSTALL_DESTINATION ${DVR_INSTALL_CMAKEDIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/DVRModulesConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/DVRModulesConfig.cmake
              ${PROJECT_BINARY_DIR}/DVRModulesConfigVersion.cmake
  DESTINATION ${DVR_INSTALL_CMAKEDIR} COMPONENT Development)

# dvrmodules.pc names the prefix it is installed under, which is only known
# at install time (CPack installs under /usr): the file is written then.
string(JOIN " " DVR_PC_LIBS_PRIVATE_ALL -pthread -lstdc++ ${DVR_PC_LIBS_PRIVATE})
string(JOIN ", " DVR_PC_REQUIRES_PRIVATE_ALL ${DVR_PC_REQUIRES_PRIVATE})
set(DVR_PC_PREFIX "@DVR_PC_PREFIX@")
configure_file(${PROJECT_SOURCE_DIR}/cmake/dvrmodules.pc.in
  ${PROJECT_BINARY_DIR}/pkgconfig/dvrmodules.pc.in @ONLY)
install(CODE "set(DVR_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
configure_file(\"${PROJECT_BINARY_DIR}/pkgconfig/dvrmodules.pc.in\"
  \"${PROJECT_BINARY_DIR}/pkgconfig/dvrmodules.pc\" @ONLY)" COMPONENT Development)
install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/dvrmodules.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)

# ---------------------------------------------------------------- packages
# `cpack` in a build folder makes dvrmodules (Runtime) and dvrmodules-dev
# (Development) for that build's target: amd64 from a host build without
# sanitizers (preset `release`), powerpc from the board build.
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "powerpc")
  set(DVR_DEB_ARCH powerpc)
else()
  set(DVR_DEB_ARCH amd64)
endif()
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME dvrmodules)
set(CPACK_PACKAGE_VENDOR "DVR service team")
set(CPACK_PACKAGE_CONTACT "DVR service team <dvr-service@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL Runtime Development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${DVR_DEB_ARCH})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME dvrmodules)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "DVR service tool and module library
dvr_i2c reads and writes registers of the board's I2C devices through the
main board driver and replays batch files of such transfers; libdvrmodules
is the module library the recorder's programs share.")
# Written out rather than taken from dpkg-shlibdeps, which knows no powerpc
# libraries on an amd64 build machine; tests/install/test_packages.sh checks
# the C library version against the symbol versions the binaries use.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libc6 (>= 2.34), libgcc-s1 (>= 3.0), libstdc++6 (>= 12)")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON) # shlibs file and the ldconfig trigger
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME dvrmodules-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "DVR module library: development files
Headers (COMMON.h, DEV.h, DNS.h, DVR_I2C.h), the static library, dvrmodules.pc
for pkg-config and the DVRModules package for CMake.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "dvrmodules (= ${PROJECT_VERSION})")
include(CPack)

# Tests of the installed tree and of the packages; a sanitized build is no
# thing to install, so only the board and release builds have them.
if(NOT DVR_SANITIZE AND NOT DVR_TSAN AND NOT DVR_FUZZ)
  enable_testing()
  add_test(NAME install.packages COMMAND bash ${PROJECT_SOURCE_DIR}/tests/install/test_packages.sh
    ${PROJECT_BINARY_DIR} ${DVR_DEB_ARCH})
  add_test(NAME install.example COMMAND bash ${PROJECT_SOURCE_DIR}/tests/install/test_example.sh
    ${PROJECT_BINARY_DIR} ${CMAKE_C_COMPILER} "${CMAKE_CROSSCOMPILING_EMULATOR}" "${CMAKE_TOOLCHAIN_FILE}")
  set_tests_properties(install.packages install.example PROPERTIES
    RESOURCE_LOCK dvr_install TIMEOUT 300)
  if(DVR_BOARD)
    set_tests_properties(install.example PROPERTIES
      ENVIRONMENT "DVR_SYSROOT_LIBDIR=${DVR_TIRPC_BOARD_PREFIX}/lib")
  endif()
endif()
