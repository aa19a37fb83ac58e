# `cpack -G DEB` makes three packages, as Debian splits a library:
#   libmrl1     the shared library's runtime file (component "library")
#   libmrl-dev  the public header, the link name, the CMake package and mrl.pc ("development")
#   zolinfo     the tool and its man page ("tool"), on its own
# They need a build configured for /usr with a shared Mrl, which puts the library in the
# multiarch directory (scripts/make-debs.sh does it); CPackChecks.cmake refuses any other.
set(CPACK_PACKAGE_NAME zolinfo)
set(CPACK_PACKAGE_VENDOR "ZolInfo developers")
set(CPACK_PACKAGE_CONTACT "ZolInfo developers <zolinfo@example.org>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# CPack puts a summary that isn't its default before each component's description, whose
# first line is the package's own summary.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${CMAKE_PROJECT_NAME} built using CMake")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(MRL_MULTIARCH_LIBDIR lib)
if(CMAKE_LIBRARY_ARCHITECTURE)
  set(MRL_MULTIARCH_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE})
endif()
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_BINARY_DIR}/CPackChecks.cmake)
configure_file(${PROJECT_SOURCE_DIR}/cmake/CPackChecks.cmake.in
  ${PROJECT_BINARY_DIR}/CPackChecks.cmake @ONLY)

set(CPACK_COMPONENTS_ALL library development tool)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Stripped, as Debian ships binaries.
set(CPACK_STRIP_FILES ON)
# A component's DEPENDS becomes "Depends: <package> (= <version>)".
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
# The run-time dependencies (libc, libstdc++, zlib, libdeflate) come from the binaries.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libmrl1)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
# The shlibs file (only a package with a shared library gets one) lets other packages'
# dpkg-shlibdeps find libmrl1 for libMrl.so.1.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "Reader of Zol model files: shared library
Mrl reads a Zol file (the compact, read-only block file of a finite-element or CFD analysis)
and gives its metadata report, translation history and arrays through a small C++ API.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libmrl-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS library)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Reader of Zol model files: development files
The header Mrl/Model.h (C++17), the CMake package Mrl (target Mrl::Mrl) and the pkg-config
file mrl.pc for programs that read Zol files through the library Mrl.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME zolinfo)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION science)
# The tool holds the library's code itself (it uses the internals), so it needs no libmrl1.
set(CPACK_COMPONENT_TOOL_DESCRIPTION "Reports on Zol model files
ZolInfo reads one Zol model file (mesh, result arrays, attributes and translation history)
and writes a metadata XML report, an EKM metadata file or a text dump of the mesh and every
result value.")

include(CPack)
