# Settings every target of this project shares: warnings on our own code, and
# the sanitizers when ORV_SANITIZE (memory) or ORV_TSAN (races) is set.

if(ORV_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined -fno-sanitize-recover=all)
endif()

if(ORV_TSAN)
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
endif()

function(orv_target_defaults target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic)
endfunction()

# A public library of this project: its headers under include/, installed
# with the package, exported under the orv:: namespace.
function(orv_public_library target export_name)
  orv_target_defaults(${target})
  target_compile_features(${target} PUBLIC cxx_std_20)
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${export_name})
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  install(TARGETS ${target} EXPORT orv-gw-modbus-targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
  install(DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/include/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
  add_library(orv::${export_name} ALIAS ${target})
endfunction()
