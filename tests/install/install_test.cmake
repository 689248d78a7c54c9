# Installs the build into a fresh prefix, then builds and runs a project that knows nothing but that prefix:
# once through find_package, once through pkg-config.
cmake_minimum_required(VERSION 3.25)

function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output
    OUTPUT_STRIP_TRAILING_WHITESPACE)
  message("${output}")
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "exit status ${result} of: ${ARGV}")
  endif()
  set(run_output "${output}" PARENT_SCOPE)
endfunction()

set(prefix ${WORK_DIR}/prefix)
set(flags "")
if(SANITIZE)
  set(flags -fsanitize=${SANITIZE})
endif()
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR}/by_cmake ${WORK_DIR}/by_pkg_config)
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

run(${CMAKE_COMMAND} -G Ninja -S ${SOURCE_DIR} -B ${WORK_DIR}/by_cmake -DCMAKE_PREFIX_PATH=${prefix}
  -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
  -DCMAKE_C_FLAGS=${flags} -DCMAKE_CXX_FLAGS=${flags})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/by_cmake)
run(${WORK_DIR}/by_cmake/outside_c ${WORK_DIR}/by_cmake)
run(${WORK_DIR}/by_cmake/outside_cxx ${WORK_DIR}/by_cmake)

set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
run(${PKG_CONFIG} --cflags --libs tovik)
separate_arguments(pkg_flags UNIX_COMMAND "${run_output}")
set(program ${WORK_DIR}/by_pkg_config/outside)
run(${C_COMPILER} ${flags} ${SOURCE_DIR}/outside.c -o ${program} ${pkg_flags} -Wl,-rpath,${prefix}/${LIBDIR})
run(${program} ${WORK_DIR}/by_pkg_config)

# The program in the README is one that works.
file(READ ${README} readme)
string(REGEX MATCH "```c\n([^`]*)```" match "${readme}")
file(WRITE ${WORK_DIR}/by_pkg_config/readme.c "${CMAKE_MATCH_1}")
set(program ${WORK_DIR}/by_pkg_config/readme)
run(${C_COMPILER} ${flags} ${program}.c -o ${program} ${pkg_flags} -Wl,-rpath,${prefix}/${LIBDIR})
run(${CMAKE_COMMAND} -E chdir ${WORK_DIR}/by_pkg_config ${program})
if(NOT run_output MATCHES "melon costs 3.25")
  message(FATAL_ERROR "the README's program printed something else")
endif()
