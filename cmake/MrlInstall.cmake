# Installation in three components: "tool" (ZolInfo, ZolDiff and their man pages), "library"
# (a shared Mrl's runtime file) and "development" (the static library or the shared one's link
# name, the public headers, the CMake package and mrl.pc). Every installed path is
# relative to the prefix, so an installed tree can be moved.
include(CMakePackageConfigHelpers)

set(MRL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Mrl)
# A shared Mrl is found next to the tool wherever the prefix ends up.
if(BUILD_SHARED_LIBS)
  file(RELATIVE_PATH MRL_BIN_TO_LIB ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(ZolInfo ZolDiff PROPERTIES INSTALL_RPATH "$ORIGIN/${MRL_BIN_TO_LIB}")
endif()

install(TARGETS ZolInfo ZolDiff RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
install(FILES man/ZolInfo.1 man/ZolDiff.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)

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
