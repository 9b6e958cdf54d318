# tessarin_module(<name>)
#
# Declares the module of the room modules/<name>: ${CMAKE_BINARY_DIR}/modules/tessarin-<name>.so, a shared
# object of the room and of the rooms below it, with one exported symbol. The target is tessarin-module-<name>.
set(TESSARIN_MODULE_SYMBOLS "${CMAKE_CURRENT_LIST_DIR}/module.symbols")

function(tessarin_module NAME)
  set(TARGET "tessarin-module-${NAME}")
  add_library(${TARGET} MODULE $<TARGET_OBJECTS:tessarin-modules-${NAME}>)
  target_link_libraries(${TARGET} PRIVATE tessarin-modules-${NAME})
  target_link_options(${TARGET} PRIVATE "-Wl,--version-script=${TESSARIN_MODULE_SYMBOLS}" -Wl,--gc-sections)
  set_target_properties(${TARGET} PROPERTIES
    PREFIX "" OUTPUT_NAME "tessarin-${NAME}" SUFFIX ".so" LINKER_LANGUAGE CXX
    LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/modules"
    LINK_DEPENDS "${TESSARIN_MODULE_SYMBOLS}")
endfunction()
