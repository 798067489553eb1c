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
# Every folder library's headers, each folder in its own place, so that
# "#include "control/DRMXManager.h"" works as it does in the tree. The backends
# that include PipeWire's or the system's headers stay private.
get_property(_header_folders GLOBAL PROPERTY TIDEMIX_HEADER_FOLDERS)
list(REMOVE_ITEM _header_folders platform/linux platform/pipewire platform/select)
foreach(_dir ${_header_folders})
  file(GLOB _public_headers ${PROJECT_SOURCE_DIR}/${_dir}/*.h)
  install(FILES ${_public_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tidemix/${_dir})
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
# The .pc file finds its prefix from where it lies, so that it follows
# `cmake --install --prefix`: libdir/pkgconfig/ is as deep as libdir, plus one.
string(REGEX REPLACE "[^/]+" ".." _pc_up "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
set(TIDEMIX_PC_PREFIX "\${pcfiledir}/${_pc_up}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/TidemixApi.pc.in
  ${CMAKE_CURRENT_BINARY_DIR}/TidemixApi.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/TidemixApi.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
