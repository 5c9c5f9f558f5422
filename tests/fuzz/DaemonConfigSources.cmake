# The daemon's configuration reader, compiled into a program that is not the
# daemon: its fuzz target and that target's corpus replay.
function(orv_add_daemon_config_sources target)
  target_sources(${target} PRIVATE
    ${PROJECT_SOURCE_DIR}/daemon/src/DaemonConfig.cpp
    ${PROJECT_SOURCE_DIR}/daemon/src/JsonNode.cpp)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/daemon/src)
  target_link_libraries(${target} PRIVATE nlohmann_json::nlohmann_json)
  target_compile_definitions(${target} PRIVATE ORV_FUZZ_DEFAULTS_FILE="${PROJECT_SOURCE_DIR}/daemon/defaults.json")
endfunction()
