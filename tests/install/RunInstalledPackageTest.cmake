# Installs the built project into a fresh prefix, then builds and runs programs outside the tree against
# it: a CMake project through find_package, and a C file through the flags of pkg-config; runs the
# installed kxfx (when TOOL_BINDIR, its directory under the prefix, is given) with no library path; and,
# where PYTHON_MODULE is true, PYTHON imports the installed module.
# Takes SOURCE_DIR, BINARY_DIR, WORK_DIR, BUILD_TYPE, SANITIZE, TOOL_BINDIR, PYTHON_MODULE and PYTHON.
cmake_minimum_required(VERSION 3.20)

foreach(variable SOURCE_DIR BINARY_DIR WORK_DIR BUILD_TYPE)
  if(NOT DEFINED ${variable})
    message(FATAL_ERROR "${variable} is not set")
  endif()
endforeach()

# Runs a command and stops the test with its output when it fails.
function(run_step what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${what} failed (${result}):\n${output}")
  endif()
  set(step_output "${output}" PARENT_SCOPE)
endfunction()

set(prefix ${WORK_DIR}/prefix)
set(consumer_source ${SOURCE_DIR}/tests/install/consumer)
set(sanitize_flags "")
if(SANITIZE)
  set(sanitize_flags -fsanitize=address,undefined -fno-sanitize-recover=undefined)
endif()
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

run_step("install" ${CMAKE_COMMAND} --install ${BINARY_DIR} --prefix ${prefix} --config ${BUILD_TYPE})

# The library directory is where the pkg-config file landed (lib, lib64 or a multiarch directory).
file(GLOB_RECURSE pc_files ${prefix}/*/kxeffects.pc)
if(NOT pc_files)
  message(FATAL_ERROR "no kxeffects.pc under ${prefix}")
endif()
list(GET pc_files 0 pc_file)
get_filename_component(pkgconfig_dir ${pc_file} DIRECTORY)
get_filename_component(lib_dir ${pkgconfig_dir} DIRECTORY)
set(run_env ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${lib_dir})

# ---- CMake package ----
string(JOIN " " flags ${sanitize_flags})
run_step("configure the consumer" ${CMAKE_COMMAND} -S ${consumer_source} -B ${WORK_DIR}/consumer
  -DCMAKE_BUILD_TYPE=${BUILD_TYPE} -DCMAKE_PREFIX_PATH=${prefix}
  "-DCMAKE_CXX_FLAGS=${flags}" "-DCMAKE_EXE_LINKER_FLAGS=${flags}")
run_step("build the consumer" ${CMAKE_COMMAND} --build ${WORK_DIR}/consumer --config ${BUILD_TYPE})
find_program(consumer kxeffects_consumer PATHS ${WORK_DIR}/consumer PATH_SUFFIXES ${BUILD_TYPE} NO_DEFAULT_PATH
  REQUIRED)
run_step("run the consumer" ${run_env} ${consumer})

# ---- pkg-config ----
# The file finds its prefix from its own place, so the flags suit this install prefix.
find_program(pkg_config pkg-config REQUIRED)
run_step("pkg-config" ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pkgconfig_dir}
  ${pkg_config} --cflags --libs kxeffects)
separate_arguments(pc_flags UNIX_COMMAND "${step_output}")
find_program(c_compiler NAMES cc gcc clang REQUIRED)
run_step("compile with the pkg-config flags" ${c_compiler} -std=c11 ${sanitize_flags} ${consumer_source}/pkgconfig.c
  ${pc_flags} -o ${WORK_DIR}/pkgconfig_consumer)
run_step("run the pkg-config consumer" ${run_env} ${WORK_DIR}/pkgconfig_consumer)

# ---- The installed tool ----
# Its run path alone must lead it to the installed libraries.
if(TOOL_BINDIR)
  find_program(kxfx kxfx PATHS ${prefix}/${TOOL_BINDIR} NO_DEFAULT_PATH REQUIRED)
  set(bare_env ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH)
  run_step("kxfx list" ${bare_env} ${kxfx} list)
  if(NOT step_output MATCHES "(^|\n)invert ")
    message(FATAL_ERROR "kxfx list does not name invert:\n${step_output}")
  endif()
  set(inverted ${WORK_DIR}/inverted.png)
  run_step("kxfx invert" ${bare_env} ${kxfx} invert ${SOURCE_DIR}/samples/coffee.png ${inverted})
  if(NOT EXISTS ${inverted})
    message(FATAL_ERROR "kxfx invert wrote no ${inverted}")
  endif()
endif()

# ---- Python module ----
# Beside the library, which it finds there without LD_LIBRARY_PATH.
if(PYTHON_MODULE)
  run_step("import the installed module" ${CMAKE_COMMAND} -E env PYTHONPATH=${lib_dir} ${PYTHON} -c
    "import kxeffects, numpy\nprint(kxeffects.invert(numpy.zeros((2, 3), numpy.uint16))[1, 2])")
  if(NOT step_output MATCHES "^65535")
    message(FATAL_ERROR "the installed module inverted 0 to ${step_output}")
  endif()
endif()
