# The daemon's configuration reader, linked into a program that is not the
# daemon: its fuzz target and that target's corpus replay.
function(orv_add_daemon_config_sources target)
  target_link_libraries(${target} PRIVATE orv-gw-modbusd-core)
  target_compile_definitions(${target} PRIVATE ORV_FUZZ_DEFAULTS_FILE="${PROJECT_SOURCE_DIR}/daemon/defaults.json")
endfunction()
