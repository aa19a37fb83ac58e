# One step of the package tests, run with cmake -P. ACTION is one of
#   install-static  install the build BUILD_DIR into WORK/prefix
#   install-shared  build the library and the tool shared, for /usr, in WORK/build; install the
#                   library into WORK/prefix
#   contents        what the prefix holds: the public header alone; for a shared library, its
#                   SONAME and exported symbols
#   cmake           build examples/consumer with find_package(Mrl) against WORK/prefix, run it
#   pkg-config      the same through `pkg-config --cflags --libs mrl`
#   deb             make the Debian packages of WORK/build and check what each holds
cmake_policy(VERSION 3.25)
set(prefix ${WORK}/prefix)
set(consumer ${SOURCE_DIR}/examples/consumer)
set(programs list_arrays result_statistics check_models)
# What a user's build would ask of itself; the public header must pass it.
set(strict -std=c++17 -Wall -Wextra -Wpedantic -Werror)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${ARGN}\nfailed (${status}):\n${out}")
  endif()
endfunction()

# Runs one example in dir and compares its standard output and status with the expected ones.
function(check_example dir expected_status expected_file)
  execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${dir}
    RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
  file(READ ${EXPECTED_DIR}/${expected_file} expected)
  if(NOT status EQUAL expected_status OR NOT out STREQUAL expected)
    message(FATAL_ERROR "${ARGN} (status ${status}, expected ${expected_status}) wrote:\n"
      "${out}${err}\nexpected:\n${expected}")
  endif()
endfunction()

# The examples on the example model, a missing file, a truncated copy and one whose payload
# lies past the end of its block. Paths are relative, so the outputs don't depend on WORK.
function(check_examples bin_dir)
  set(dir ${bin_dir}/run)
  file(REMOVE_RECURSE ${dir})
  file(MAKE_DIRECTORY ${dir})
  file(COPY ${SOURCE_DIR}/examples/wheel.zol ${SOURCE_DIR}/tests/data/golden/broken-payload.zol
    DESTINATION ${dir})
  # Cut inside the index, which ends the file.
  execute_process(COMMAND head -c 1000 wheel.zol OUTPUT_FILE truncated.zol WORKING_DIRECTORY ${dir})
  check_example(${dir} 0 list_arrays.txt ${bin_dir}/list_arrays wheel.zol)
  check_example(${dir} 0 result_statistics.txt ${bin_dir}/result_statistics wheel.zol Stress)
  check_example(${dir} 1 check_models.txt
    ${bin_dir}/check_models wheel.zol missing.zol truncated.zol broken-payload.zol)
endfunction()

function(check_only_public_header)
  file(GLOB_RECURSE headers RELATIVE ${prefix} ${prefix}/include/*)
  if(NOT headers STREQUAL "include/Mrl/Model.h")
    message(FATAL_ERROR "installed headers: ${headers}; expected include/Mrl/Model.h alone")
  endif()
endfunction()

# Every exported symbol belongs to the public API; the internals and the standard library's
# instantiations stay inside.
function(check_exported_symbols library)
  execute_process(COMMAND readelf -d ${library} OUTPUT_VARIABLE dynamic)
  if(NOT dynamic MATCHES "Library soname: \\[libMrl\\.so\\.1\\]")
    message(FATAL_ERROR "${library}: SONAME is not libMrl.so.1:\n${dynamic}")
  endif()
  execute_process(COMMAND nm -D --defined-only --demangle ${library} OUTPUT_VARIABLE listing
    RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "nm failed on ${library}")
  endif()
  string(REGEX REPLACE "\n$" "" listing "${listing}")
  string(REPLACE ";" "\\;" listing "${listing}")
  string(REPLACE "\n" ";" lines "${listing}")
  set(public "^(Mrl::(Model|Array|Error)::|Mrl::Version\\(\\)$")
  string(APPEND public "|(typeinfo|typeinfo name|vtable) for Mrl::Error$)")
  set(count 0)
  set(strays "")
  foreach(line IN LISTS lines)
    # "address type name"; the name may hold spaces.
    string(REGEX REPLACE "^[0-9a-f]+ [A-Za-z] " "" name "${line}")
    math(EXPR count "${count} + 1")
    if(NOT name MATCHES "${public}")
      string(APPEND strays "  ${name}\n")
    endif()
  endforeach()
  if(strays)
    message(FATAL_ERROR "${library} exports what is not the public API:\n${strays}")
  endif()
  if(count EQUAL 0 OR count GREATER 100)
    message(FATAL_ERROR "${library} exports ${count} symbols; expected 1 to 100")
  endif()
  message(STATUS "${library}: ${count} symbols, all public")
endfunction()

if(ACTION STREQUAL "install-static")
  file(REMOVE_RECURSE ${WORK})
  run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
elseif(ACTION STREQUAL "install-shared")
  # Configured as the Debian packages are made, unoptimised to stay quick. The prefix /usr
  # puts the library in the multiarch directory; installing elsewhere keeps that layout.
  file(REMOVE_RECURSE ${prefix})
  run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK}/build -G ${GENERATOR}
    -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_BUILD_TYPE=None -DBUILD_SHARED_LIBS=ON
    -DCMAKE_INSTALL_PREFIX=/usr -DMRL_TESTS=OFF -DMRL_PYTHON=OFF)
  run(${CMAKE_COMMAND} --build ${WORK}/build --target Mrl ZolInfo -j2)
  foreach(component library development)
    run(${CMAKE_COMMAND} --install ${WORK}/build --component ${component} --prefix ${prefix})
  endforeach()
elseif(ACTION STREQUAL "contents")
  check_only_public_header()
  file(GLOB_RECURSE shared ${prefix}/*libMrl.so.1)
  if(shared)
    check_exported_symbols(${shared})
  endif()
elseif(ACTION STREQUAL "cmake")
  set(dir ${WORK}/consumer-cmake)
  file(REMOVE_RECURSE ${dir})
  string(REPLACE ";" " " flags "${strict}")
  run(${CMAKE_COMMAND} -S ${consumer} -B ${dir} -G ${GENERATOR}
    -DCMAKE_CXX_COMPILER=${CXX} "-DCMAKE_CXX_FLAGS=${flags}" -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF -DCMAKE_FIND_USE_SYSTEM_PACKAGE_REGISTRY=OFF)
  run(${CMAKE_COMMAND} --build ${dir})
  check_examples(${dir})
elseif(ACTION STREQUAL "pkg-config")
  set(dir ${WORK}/consumer-pc)
  file(REMOVE_RECURSE ${dir})
  file(MAKE_DIRECTORY ${dir})
  file(GLOB_RECURSE pc_file ${prefix}/*mrl.pc)
  get_filename_component(pc_dir "${pc_file}" DIRECTORY)
  set(ENV{PKG_CONFIG_PATH} ${pc_dir})
  execute_process(COMMAND pkg-config --cflags --libs mrl
    RESULT_VARIABLE status OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "pkg-config found no mrl in ${pc_dir}")
  endif()
  separate_arguments(flags UNIX_COMMAND "${flags}")
  foreach(program IN LISTS programs)
    run(${CXX} ${strict} ${consumer}/${program}.cpp ${flags} -o ${dir}/${program})
  endforeach()
  # A shared Mrl is found through the prefix only.
  string(REGEX MATCH "-L([^ ;]+)" libdir_flag "${flags}")
  set(ENV{LD_LIBRARY_PATH} ${CMAKE_MATCH_1})
  check_examples(${dir})
elseif(ACTION STREQUAL "deb")
  include(${CMAKE_CURRENT_LIST_DIR}/Debian.cmake)
else()
  message(FATAL_ERROR "unknown ACTION ${ACTION}")
endif()
