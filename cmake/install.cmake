# cmake --install: the module, the tool with its manual and completion
# scripts, and the reference host's headers (include/propmap/host) and static
# library with a CMake package and a pkg-config file, so that other hosts can
# use find_package(propmap) or pkg-config and #include <propmap/host/store.h>.
include(CMakePackageConfigHelpers)

install(TARGETS propmap LIBRARY DESTINATION lib/propmap)
install(TARGETS propmap_tool RUNTIME DESTINATION bin)
install(TARGETS prhost EXPORT propmapTargets ARCHIVE DESTINATION lib)
file(GLOB PROPMAP_HOST_HEADERS ${CMAKE_SOURCE_DIR}/host/*.h)
install(FILES ${PROPMAP_HOST_HEADERS} DESTINATION include/propmap/host)
install(EXPORT propmapTargets NAMESPACE propmap:: DESTINATION lib/cmake/propmap)

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/propmapConfig.cmake.in
  ${CMAKE_BINARY_DIR}/propmapConfig.cmake INSTALL_DESTINATION lib/cmake/propmap)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/propmapConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/propmapConfig.cmake ${CMAKE_BINARY_DIR}/propmapConfigVersion.cmake
  DESTINATION lib/cmake/propmap)

# pkg-config for hosts that do not use CMake; relative to its own place, so
# that any --prefix works.
configure_file(${CMAKE_CURRENT_LIST_DIR}/propmap.pc.in ${CMAKE_BINARY_DIR}/propmap.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/propmap.pc DESTINATION lib/pkgconfig)

# The manual is written for people, not generated from --help.
install(FILES ${CMAKE_SOURCE_DIR}/tools/propmap/propmap.1 DESTINATION share/man/man1)

# Completion scripts, printed by the built tool from its own command line.
set(PROPMAP_COMPLETIONS ${CMAKE_BINARY_DIR}/completion/propmap.bash ${CMAKE_BINARY_DIR}/completion/_propmap
  ${CMAKE_BINARY_DIR}/completion/propmap.fish)
add_custom_command(OUTPUT ${PROPMAP_COMPLETIONS}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/completion
  COMMAND $<TARGET_FILE:propmap_tool> completion bash > ${CMAKE_BINARY_DIR}/completion/propmap.bash
  COMMAND $<TARGET_FILE:propmap_tool> completion zsh > ${CMAKE_BINARY_DIR}/completion/_propmap
  COMMAND $<TARGET_FILE:propmap_tool> completion fish > ${CMAKE_BINARY_DIR}/completion/propmap.fish
  DEPENDS propmap_tool
  COMMENT "Writing the propmap completion scripts")
add_custom_target(propmap_completion ALL DEPENDS ${PROPMAP_COMPLETIONS})
install(FILES ${CMAKE_BINARY_DIR}/completion/propmap.bash DESTINATION share/bash-completion/completions
  RENAME propmap)
install(FILES ${CMAKE_BINARY_DIR}/completion/_propmap DESTINATION share/zsh/site-functions)
install(FILES ${CMAKE_BINARY_DIR}/completion/propmap.fish DESTINATION share/fish/vendor_completions.d)
