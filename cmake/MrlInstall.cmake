# Installation in three components: "tool" (ZolInfo and its man page), "library" (a shared
# Mrl's runtime file) and "development" (the static library or the shared one's link name,
# the public headers, the CMake package and mrl.pc). Every installed path is
# relative to the prefix, so an installed tree can be moved.
include(CMakePackageConfigHelpers)

set(MRL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Mrl)
install(TARGETS ZolInfo RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
# Compressed, as Debian keeps man pages; -n leaves out the time stamp, so that the same page
# gives the same bytes.
add_custom_command(OUTPUT ZolInfo.1.gz
  COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/man/ZolInfo.1 > ZolInfo.1.gz
  DEPENDS man/ZolInfo.1 VERBATIM)
add_custom_target(man_page_gz ALL DEPENDS ZolInfo.1.gz)
# A build of the tool alone is enough to install it.
add_dependencies(ZolInfo man_page_gz)
install(FILES ${PROJECT_BINARY_DIR}/ZolInfo.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
  COMPONENT tool)

# Each Debian package carries the licence as its copyright file, in the machine-readable form.
file(READ ${PROJECT_SOURCE_DIR}/LICENSE MRL_LICENSE)
string(REGEX REPLACE "\n\n" "\n.\n" MRL_LICENSE "${MRL_LICENSE}")
string(REGEX REPLACE "\n([^\n])" "\n \\1" MRL_LICENSE "\n${MRL_LICENSE}")
file(WRITE ${PROJECT_BINARY_DIR}/copyright "\
Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: ZolInfo

Files: *
Copyright: 2026 ZolInfo developers
License: Expat${MRL_LICENSE}")
foreach(component_package tool:zolinfo library:libmrl1 development:libmrl-dev)
  string(REPLACE ":" ";" component_package ${component_package})
  list(GET component_package 0 component)
  list(GET component_package 1 package)
  install(FILES ${PROJECT_BINARY_DIR}/copyright
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package} COMPONENT ${component})
endforeach()

install(TARGETS Mrl EXPORT MrlTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library
    NAMELINK_COMPONENT development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT library)
# The public header alone: the internals' headers stay in the source tree.
install(FILES include/Mrl/Model.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/Mrl
  COMPONENT development)
install(EXPORT MrlTargets NAMESPACE Mrl:: DESTINATION ${MRL_CMAKE_DIR} COMPONENT development)

configure_package_config_file(cmake/MrlConfig.cmake.in ${PROJECT_BINARY_DIR}/MrlConfig.cmake
  INSTALL_DESTINATION ${MRL_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/MrlConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/MrlConfig.cmake ${PROJECT_BINARY_DIR}/MrlConfigVersion.cmake
  DESTINATION ${MRL_CMAKE_DIR} COMPONENT development)

# mrl.pc finds the prefix from its own place (${pcfiledir}). A static Mrl lists zlib and
# libdeflate under Libs, since a plain `pkg-config --libs mrl` must be enough to link it; a
# shared one keeps them private. Cflags carry no -std: the public header is C++17 and later.
set(MRL_PC_DEFLATE "")
if(MRL_HAVE_LIBDEFLATE)
  set(MRL_PC_DEFLATE " -ldeflate")
endif()
if(MRL_LIBRARY_TYPE STREQUAL "STATIC_LIBRARY")
  set(MRL_PC_REQUIRES "Requires: zlib")
  set(MRL_PC_LIBS "-L\${libdir} -lMrl${MRL_PC_DEFLATE}")
  set(MRL_PC_LIBS_PRIVATE "")
else()
  set(MRL_PC_REQUIRES "Requires.private: zlib")
  set(MRL_PC_LIBS "-L\${libdir} -lMrl")
  set(MRL_PC_LIBS_PRIVATE "Libs.private:${MRL_PC_DEFLATE}")
endif()
set(MRL_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH MRL_PC_TO_PREFIX ${CMAKE_INSTALL_PREFIX}/${MRL_PC_DIR} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" MRL_PC_TO_PREFIX "${MRL_PC_TO_PREFIX}")
configure_file(cmake/mrl.pc.in ${PROJECT_BINARY_DIR}/mrl.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/mrl.pc DESTINATION ${MRL_PC_DIR} COMPONENT development)
