# The library tessarin-module-build-id: moduleBuildId(), linked into the program and into every module. The
# id comes from the project's version, the compiler, its options and the headers of the rooms whose types
# pass between program and modules, so it changes whenever their layouts may.
#
# Included, this file declares the library; run as a script, it writes the source.
if(CMAKE_SCRIPT_MODE_FILE)
  file(GLOB HEADERS "${SOURCE_DIR}/src/base/*.hpp" "${SOURCE_DIR}/src/model/*.hpp" "${SOURCE_DIR}/src/ports/*.hpp")
  list(SORT HEADERS)
  set(HASHES "${IDENTITY}")
  foreach(HEADER IN LISTS HEADERS)
    file(SHA256 "${HEADER}" HASH)
    string(APPEND HASHES " ${HASH}")
  endforeach()
  string(SHA256 ID "${HASHES}")
  file(CONFIGURE OUTPUT "${OUTPUT}" @ONLY CONTENT [[
#include "ports/Modules.hpp"

namespace tessarin {

const char* moduleBuildId() {
  return "@ID@";
}

} // namespace tessarin
]])
  return()
endif()

file(GLOB MODULE_INTERFACE_HEADERS CONFIGURE_DEPENDS
     "${CMAKE_SOURCE_DIR}/src/base/*.hpp" "${CMAKE_SOURCE_DIR}/src/model/*.hpp" "${CMAKE_SOURCE_DIR}/src/ports/*.hpp")
set(MODULE_BUILD_ID_SOURCE "${CMAKE_BINARY_DIR}/generated/ModuleBuildId.cpp")
add_custom_command(
  OUTPUT "${MODULE_BUILD_ID_SOURCE}"
  COMMAND "${CMAKE_COMMAND}" "-DSOURCE_DIR=${CMAKE_SOURCE_DIR}" "-DOUTPUT=${MODULE_BUILD_ID_SOURCE}"
          "-DIDENTITY=${PROJECT_VERSION} ${CMAKE_CXX_COMPILER_ID} ${CMAKE_CXX_COMPILER_VERSION} ${CMAKE_SYSTEM_PROCESSOR} ${CMAKE_BUILD_TYPE} ${TESSARIN_SANITIZE}"
          -P "${CMAKE_CURRENT_LIST_FILE}"
  DEPENDS ${MODULE_INTERFACE_HEADERS} "${CMAKE_CURRENT_LIST_FILE}"
  COMMENT "Naming the interface between program and modules"
  VERBATIM)
add_library(tessarin-module-build-id STATIC "${MODULE_BUILD_ID_SOURCE}")
set_target_properties(tessarin-module-build-id PROPERTIES POSITION_INDEPENDENT_CODE ON)
target_include_directories(tessarin-module-build-id PRIVATE "${CMAKE_SOURCE_DIR}/src")
target_link_libraries(tessarin-module-build-id PRIVATE tessarin-options)
