# Installs the CMake package (find_package(orv-gw-modbus) giving
# orv::gw-modbus) and the pkg-config file, so that a map plug-in outside this
# tree builds against an installed library.
include(CMakePackageConfigHelpers)

set(ORV_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/orv-gw-modbus)

install(EXPORT orv-gw-modbus-targets
  NAMESPACE orv::
  DESTINATION ${ORV_CMAKE_DIR}
  COMPONENT dev)

configure_package_config_file(
  ${CMAKE_CURRENT_SOURCE_DIR}/cmake/orv-gw-modbusConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/orv-gw-modbusConfig.cmake
  INSTALL_DESTINATION ${ORV_CMAKE_DIR})
write_basic_package_version_file(
  ${CMAKE_CURRENT_BINARY_DIR}/orv-gw-modbusConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/orv-gw-modbusConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/orv-gw-modbusConfigVersion.cmake
  DESTINATION ${ORV_CMAKE_DIR}
  COMPONENT dev)

# The .pc file finds its prefix from where it lies, so the installed tree can
# be moved.
file(RELATIVE_PATH ORV_PC_TO_PREFIX
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${CMAKE_CURRENT_SOURCE_DIR}/cmake/orv-gw-modbus.pc.in
  ${CMAKE_CURRENT_BINARY_DIR}/orv-gw-modbus.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/orv-gw-modbus.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT dev)

include(OrvDebian)
