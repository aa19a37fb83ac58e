# One step of the package tests, run with cmake -P. ACTION is one of
#   install-static  install the build BUILD_DIR into WORK/prefix
#   install-shared  build the library alone as a shared library in WORK/build, install it
#   cmake           build examples/consumer with find_package(Mrl) against WORK/prefix, run it
#   pkg-config      the same through `pkg-config --cflags --libs mrl`
set(prefix ${WORK}/prefix)
set(consumer ${SOURCE_DIR}/examples/consumer)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${ARGN}\nfailed (${status}):\n${out}")
  endif()
endfunction()

# The consumer's report on the example must be the expected one, byte for byte.
function(check_consumer program)
  execute_process(COMMAND ${program} ${SOURCE_DIR}/examples/wheel.zol
    RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
  file(READ ${EXPECTED} expected)
  if(NOT status EQUAL 0 OR NOT out STREQUAL expected)
    message(FATAL_ERROR "${program} (status ${status}) wrote:\n${out}${err}\nexpected:\n${expected}")
  endif()
endfunction()

if(ACTION STREQUAL "install-static")
  file(REMOVE_RECURSE ${WORK})
  run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
elseif(ACTION STREQUAL "install-shared")
  file(REMOVE_RECURSE ${prefix})
  run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK}/build -G ${GENERATOR}
    -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_BUILD_TYPE=None -DBUILD_SHARED_LIBS=ON -DMRL_TESTS=OFF)
  run(${CMAKE_COMMAND} --build ${WORK}/build --target Mrl -j2)
  foreach(component library development)
    run(${CMAKE_COMMAND} --install ${WORK}/build --component ${component} --prefix ${prefix})
  endforeach()
elseif(ACTION STREQUAL "cmake")
  file(REMOVE_RECURSE ${WORK}/consumer-cmake)
  run(${CMAKE_COMMAND} -S ${consumer} -B ${WORK}/consumer-cmake -G ${GENERATOR}
    -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF -DCMAKE_FIND_USE_SYSTEM_PACKAGE_REGISTRY=OFF)
  run(${CMAKE_COMMAND} --build ${WORK}/consumer-cmake)
  check_consumer(${WORK}/consumer-cmake/list_arrays)
elseif(ACTION STREQUAL "pkg-config")
  file(GLOB_RECURSE pc_file ${prefix}/*/mrl.pc)
  get_filename_component(pc_dir "${pc_file}" DIRECTORY)
  set(ENV{PKG_CONFIG_PATH} ${pc_dir})
  execute_process(COMMAND pkg-config --cflags --libs mrl
    RESULT_VARIABLE status OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "pkg-config found no mrl in ${pc_dir}")
  endif()
  separate_arguments(flags UNIX_COMMAND "${flags}")
  run(${CXX} -std=c++17 -Wall -Wextra -Wpedantic -Werror ${consumer}/list_arrays.cpp ${flags} -o ${WORK}/consumer-pc)
  # A shared Mrl is found through the prefix only.
  string(REGEX MATCH "-L([^ ;]+)" libdir_flag "${flags}")
  set(ENV{LD_LIBRARY_PATH} ${CMAKE_MATCH_1})
  check_consumer(${WORK}/consumer-pc)
else()
  message(FATAL_ERROR "unknown ACTION ${ACTION}")
endif()
