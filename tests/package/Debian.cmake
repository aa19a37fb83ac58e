# The Debian packages of the shared build WORK/build: what each holds (debian-contents.txt,
# with the multiarch directory as @MULTIARCH@) and what each depends on.
set(debs ${WORK}/debs)
file(REMOVE_RECURSE ${debs})
run(cpack -G DEB --config ${WORK}/build/CPackConfig.cmake -B ${debs})
execute_process(COMMAND dpkg-architecture -qDEB_HOST_MULTIARCH OUTPUT_VARIABLE MULTIARCH
  OUTPUT_STRIP_TRAILING_WHITESPACE)

set(contents "")
foreach(package libmrl1 libmrl-dev zolinfo)
  file(GLOB deb ${debs}/${package}_*.deb)
  if(NOT deb)
    message(FATAL_ERROR "no package ${package} in ${debs}")
  endif()
  execute_process(COMMAND dpkg-deb -c ${deb} OUTPUT_VARIABLE listing)
  # Files and links, not directories; a link's target after its name.
  string(REGEX MATCHALL "\n[-l][^\n]* \\./[^\n]*" entries "\n${listing}")
  set(paths "")
  foreach(entry IN LISTS entries)
    string(REGEX REPLACE ".* \\./" "/" path "${entry}")
    # The CMake package's per-configuration file is named after the build type.
    string(REGEX REPLACE "MrlTargets-[a-z]+\\.cmake" "MrlTargets-<config>.cmake" path "${path}")
    list(APPEND paths "${package}: ${path}")
  endforeach()
  list(SORT paths)
  list(JOIN paths "\n" paths)
  string(APPEND contents "${paths}\n")
  execute_process(COMMAND dpkg-deb -f ${deb} Depends OUTPUT_VARIABLE depends_${package})
endforeach()
file(READ ${EXPECTED_DIR}/debian-contents.txt expected)
string(REPLACE "@MULTIARCH@" "${MULTIARCH}" expected "${expected}")
if(NOT contents STREQUAL expected)
  message(FATAL_ERROR "The packages hold:\n${contents}\nexpected:\n${expected}")
endif()

# The development files want the same version of the library; the library's own dependencies
# come from its binary. The tool holds the library's code and needs no libmrl1.
file(GLOB deb ${debs}/libmrl1_*.deb)
execute_process(COMMAND dpkg-deb -f ${deb} Version OUTPUT_VARIABLE version
  OUTPUT_STRIP_TRAILING_WHITESPACE)
set(exact "libmrl1 (= ${version})")
if(depends_zolinfo MATCHES "libmrl")
  message(FATAL_ERROR "zolinfo depends on: ${depends_zolinfo}; expected no libmrl1")
endif()
foreach(check "zolinfo;libc6" "zolinfo;zlib1g" "libmrl-dev;${exact}" "libmrl1;zlib1g"
              "libmrl1;libstdc\\+\\+6")
  list(GET check 0 package)
  list(GET check 1 wanted)
  string(REPLACE "(" "\\(" wanted "${wanted}")
  string(REPLACE ")" "\\)" wanted "${wanted}")
  if(NOT depends_${package} MATCHES "(^|, )${wanted}")
    message(FATAL_ERROR "${package} depends on: ${depends_${package}}; expected ${wanted}")
  endif()
endforeach()
execute_process(COMMAND dpkg-deb -I ${deb} shlibs OUTPUT_VARIABLE shlibs)
execute_process(COMMAND dpkg-deb -I ${deb} postinst OUTPUT_VARIABLE postinst)
if(NOT shlibs MATCHES "^libMrl 1 libmrl1 \\(>= " OR NOT postinst MATCHES "ldconfig")
  message(FATAL_ERROR "libmrl1's shlibs file: ${shlibs}\npostinst: ${postinst}")
endif()
