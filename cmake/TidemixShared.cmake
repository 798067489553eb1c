# libTidemixApi: the shared library an application links. It holds every
# folder library whole, so that nothing the application needs is dropped.
get_property(_tidemix_libs GLOBAL PROPERTY TIDEMIX_LIBRARIES)

set(_tidemix_objects "")
foreach(_lib ${_tidemix_libs})
  list(APPEND _tidemix_objects $<TARGET_OBJECTS:${_lib}>)
endforeach()
add_library(TidemixApi SHARED ${_tidemix_objects})
set_target_properties(TidemixApi PROPERTIES
  OUTPUT_NAME TidemixApi
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR})
# The folder libraries' outside dependencies.
foreach(_lib ${_tidemix_libs})
  get_target_property(_deps ${_lib} LINK_LIBRARIES)
  foreach(_dep ${_deps})
    if(NOT _dep MATCHES "^tidemix_")
      target_link_libraries(TidemixApi PRIVATE ${_dep})
    endif()
  endforeach()
endforeach()
target_link_libraries(TidemixApi PUBLIC Threads::Threads)
target_include_directories(TidemixApi PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
  $<INSTALL_INTERFACE:include/tidemix>)
# The public headers include nlohmann json.
target_link_libraries(TidemixApi PUBLIC nlohmann_json::nlohmann_json)
add_library(Tidemix::TidemixApi ALIAS TidemixApi)

# Static umbrella for tests and benchmarks, which reach internals.
add_library(tidemix_all INTERFACE)
target_link_libraries(tidemix_all INTERFACE ${_tidemix_libs})

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
install(TARGETS TidemixApi EXPORT TidemixApiTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tidemix)
foreach(_dir portable-core portable-core/json platform platform/sim sound sockets settings
        engine engine/media engine/units engine/filters engine/devices engine/sources engine/sinks microphones observers observers/appaudio control)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${_dir}/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tidemix/${_dir}
    FILES_MATCHING PATTERN "*.h" PATTERN "*/*" EXCLUDE)
endforeach()
install(EXPORT TidemixApiTargets NAMESPACE Tidemix::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/TidemixApi)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/TidemixApiConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/TidemixApiConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/TidemixApi)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/TidemixApiConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/TidemixApiConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/TidemixApiConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/TidemixApi)
configure_file(${PROJECT_SOURCE_DIR}/cmake/TidemixApi.pc.in
  ${CMAKE_CURRENT_BINARY_DIR}/TidemixApi.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/TidemixApi.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
