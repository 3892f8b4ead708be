# cmake --install: the module, the tool and its man page, and the reference
# host's headers and static library with a package config, so that other
# hosts can use find_package(propmap) and link propmap::prhost.
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

# The man page is generated from the tool's own --help, so it cannot drift.
find_program(HELP2MAN help2man)
if(HELP2MAN)
  add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/propmap.1
    COMMAND bash ${CMAKE_SOURCE_DIR}/scripts/man_page.sh $<TARGET_FILE:propmap_tool> ${CMAKE_BINARY_DIR}/propmap.1
    DEPENDS propmap_tool propmap ${CMAKE_SOURCE_DIR}/scripts/man_page.sh
    COMMENT "Generating the propmap man page")
  add_custom_target(propmap_man ALL DEPENDS ${CMAKE_BINARY_DIR}/propmap.1)
  install(FILES ${CMAKE_BINARY_DIR}/propmap.1 DESTINATION share/man/man1)
else()
  message(STATUS "help2man not found: no man page (scripts/setup.sh installs it)")
endif()
