# `cpack -G DEB` makes zolinfo_<version>_<arch>.deb: the tool, its man page and, in a shared
# build, the library it runs with. Headers and the static library stay out of it.
set(CPACK_PACKAGE_NAME zolinfo)
set(CPACK_PACKAGE_VENDOR "ZolInfo developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Reports on Zol model files: metadata, EKM metadata, data dump")
set(CPACK_PACKAGE_CONTACT "ZolInfo developers <zolinfo@example.org>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# One package made of the chosen components only.
set(CPACK_COMPONENTS_ALL tool library)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_PACKAGE_DESCRIPTION "ZolInfo reads one Zol model file (mesh, result arrays, \
attributes and translation history) and writes a metadata XML report, an EKM metadata file \
or a text dump of the mesh and every result value.")
# The run-time dependencies (libc, libstdc++, zlib, libdeflate) come from the binary itself.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)

include(CPack)
