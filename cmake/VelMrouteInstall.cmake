# Functions that install a library of the project: its headers, its place in the CMake package
# VelMroute, and its file for pkg-config. The headers are a component of the installation, which
# needs no built library.

set(VELMROUTE_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/VelMroute)

# Makes and installs `file`.pc for LIBRARY. The file computes the prefix from its own directory, so an
# installed tree can be moved. REQUIRES names the .pc file of a library that LIBRARY needs.
function(velmroute_install_pc file)
   cmake_parse_arguments(PARSE_ARGV 1 pc "" "NAME;DESCRIPTION;LIBRARY;REQUIRES" "")
   file(RELATIVE_PATH pc_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
   string(REGEX REPLACE "/$" "" pc_prefix ${pc_prefix})
   file(RELATIVE_PATH pc_libdir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
   file(RELATIVE_PATH pc_includedir ${CMAKE_INSTALL_PREFIX}
        ${CMAKE_INSTALL_FULL_INCLUDEDIR}/VelMroute)
   configure_file(${PROJECT_SOURCE_DIR}/cmake/velmroute.pc.in ${PROJECT_BINARY_DIR}/${file}.pc @ONLY)
   install(FILES ${PROJECT_BINARY_DIR}/${file}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()

# Makes and installs a static library `target` beside the shared one: VelMroute::NAME for CMake, and
# PC.pc with DESCRIPTION for pkg-config. HEADERS are installed under their names below the root of the
# tree. LINKS names the library of the project on which this one stands, and REQUIRES its .pc file.
function(velmroute_static_library target)
   cmake_parse_arguments(PARSE_ARGV 1 lib "" "NAME;PC;DESCRIPTION;LINKS;REQUIRES" "SOURCES;HEADERS")
   add_library(${target} STATIC ${lib_SOURCES})
   add_library(VelMroute::${lib_NAME} ALIAS ${target})
   set_target_properties(${target} PROPERTIES EXPORT_NAME ${lib_NAME})
   target_link_libraries(${target} PUBLIC ${lib_LINKS} PRIVATE $<BUILD_INTERFACE:velmroute_options>)
   target_sources(${target} PUBLIC
      FILE_SET headers TYPE HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${lib_HEADERS})
   velmroute_join(${target} 6)
   install(TARGETS ${target} EXPORT VelMroute
           FILE_SET headers DESTINATION ${VELMROUTE_INCLUDE_DIR} COMPONENT headers
           INCLUDES DESTINATION ${VELMROUTE_INCLUDE_DIR})
   velmroute_install_pc(${lib_PC} NAME "${PROJECT_NAME} ${lib_NAME}" LIBRARY ${target}
                        DESCRIPTION "${lib_DESCRIPTION}" REQUIRES ${lib_REQUIRES})
endfunction()
