# One static library per folder, built from every .cpp in that folder (not its
# sub-folders). The shared library libTidemixApi joins them all.
set_property(GLOBAL PROPERTY TIDEMIX_LIBRARIES "")
set_property(GLOBAL PROPERTY TIDEMIX_HEADER_FOLDERS "")

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  set(TIDEMIX_WARNINGS -Wall -Wextra -Wnon-virtual-dtor -Woverloaded-virtual -Werror)
else()
  # The fuzz build uses clang, whose warning set differs; gcc's build is the gate.
  set(TIDEMIX_WARNINGS -Wall -Wextra)
endif()

function(tidemix_folder_library name)
  cmake_parse_arguments(ARG "" "" "DEPS;PRIVATE_DEPS" ${ARGN})
  file(GLOB _sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/*.c)
  file(GLOB _headers CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
  # The folder's headers are installed unless the folder says they are private.
  file(RELATIVE_PATH _folder ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  set_property(GLOBAL APPEND PROPERTY TIDEMIX_HEADER_FOLDERS ${_folder})
  if(_sources)
    add_library(${name} STATIC ${_sources} ${_headers})
    target_include_directories(${name} PUBLIC
      $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
      $<INSTALL_INTERFACE:include/tidemix>)
    target_compile_options(${name} PRIVATE ${TIDEMIX_WARNINGS})
    target_link_libraries(${name} PUBLIC ${ARG_DEPS} PRIVATE ${ARG_PRIVATE_DEPS})
    set_property(GLOBAL APPEND PROPERTY TIDEMIX_LIBRARIES ${name})
  else()
    # A folder that has only headers so far.
    add_library(${name} INTERFACE ${_headers})
    target_include_directories(${name} INTERFACE
      $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
      $<INSTALL_INTERFACE:include/tidemix>)
    target_link_libraries(${name} INTERFACE ${ARG_DEPS})
  endif()
endfunction()
