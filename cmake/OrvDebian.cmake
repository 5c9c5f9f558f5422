# `make deb`: three Debian packages from one build, by install component:
#   liborv-gw-modbus2     runtime  the library and the platform stand-ins
#   liborv-gw-modbus-dev  dev      headers, CMake package, pkg-config file
#   orv-gw-modbusd        daemon   daemon, unit, configuration, manual pages
set(ORV_DEB_DOC_FILES
  ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/copyright)
foreach(component runtime dev daemon)
  set(package_runtime liborv-gw-modbus2)
  set(package_dev liborv-gw-modbus-dev)
  set(package_daemon orv-gw-modbusd)
  set(doc ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package_${component}})
  install(FILES cmake/debian/copyright DESTINATION ${doc} COMPONENT ${component})
  # Debian wants the changelog compressed with the highest compression and
  # no time stamp, so that the package is reproducible.
  set(changelog ${CMAKE_CURRENT_BINARY_DIR}/debian/${package_${component}}/changelog.Debian.gz)
  add_custom_command(OUTPUT ${changelog}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_CURRENT_BINARY_DIR}/debian/${package_${component}}
    COMMAND sh -c "sed 's/@PACKAGE@/${package_${component}}/' ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/changelog | gzip -9n > ${changelog}"
    DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/changelog VERBATIM)
  add_custom_target(orv-deb-changelog-${component} ALL DEPENDS ${changelog})
  install(FILES ${changelog} DESTINATION ${doc} COMPONENT ${component})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_NAME orv-gw-modbus)
set(CPACK_PACKAGE_VENDOR "orv")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev daemon)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Gateway Firmware Team <firmware@gateway.invalid>")
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# The libraries' own dependencies (libmodbus, spdlog, fmt, cxxtools, libc,
# libstdc++, libsystemd) come from dpkg-shlibdeps; the library shipped here
# is found in the staged runtime package.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
  ${CMAKE_CURRENT_BINARY_DIR}/lib
  ${CMAKE_CURRENT_BINARY_DIR}/platform/cdsapi
  ${CMAKE_CURRENT_BINARY_DIR}/platform/common
  ${CMAKE_CURRENT_BINARY_DIR}/platform/logging
  ${CMAKE_CURRENT_BINARY_DIR}/platform/zu)

set(ORV_DEB_VERSION "${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME liborv-gw-modbus2)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY "=")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/runtime/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "Modbus TCP and RTU access to the gateway's data store - library
 The shared library liborv-gw-modbus answers Modbus TCP clients and Modbus
 RTU masters from maps of the gateway's data store, with the stand-ins of
 the gateway platform libraries it links.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME liborv-gw-modbus-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
  "liborv-gw-modbus2 (= ${ORV_DEB_VERSION}), libmodbus-dev, libcxxtools-dev, libspdlog-dev, libfmt-dev, libboost-dev, nlohmann-json3-dev, pkg-config")
set(CPACK_COMPONENT_DEV_DESCRIPTION "Modbus TCP and RTU access to the gateway's data store - development files
 Headers, CMake package (find_package(orv-gw-modbus)) and pkg-config file for
 writing map plug-ins against liborv-gw-modbus.")

set(CPACK_DEBIAN_DAEMON_PACKAGE_NAME orv-gw-modbusd)
set(CPACK_DEBIAN_DAEMON_PACKAGE_SECTION net)
set(CPACK_DEBIAN_DAEMON_PACKAGE_DEPENDS "liborv-gw-modbus2 (= ${ORV_DEB_VERSION})")
set(CPACK_DEBIAN_DAEMON_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/daemon/conffiles)
set(CPACK_COMPONENT_DAEMON_DESCRIPTION "Modbus TCP and RTU server daemon for the gateway's data store
 orv-gw-modbusd serves map plug-ins to Modbus TCP clients and Modbus RTU
 masters, as a systemd service with a watchdog.")

include(CPack)
