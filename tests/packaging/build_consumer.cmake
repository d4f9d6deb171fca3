# Builds and runs the consumer in tests/packaging/consumer/ one way, in
# WORK_DIR (emptied first):
#   MODE=install           installs BUILD_DIR into PREFIX and checks what is there
#   MODE=find_package      CMake project, find_package() in PREFIX
#   MODE=pkg_config        CXX with `pkg-config --cflags --libs` against PREFIX
#   MODE=add_subdirectory  CMake project embedding SOURCE_DIR
# PREFIX/LIBDIR is where the libraries are installed (on Windows the DLLs are
# in PREFIX/BINDIR, their import libraries in PREFIX/LIBDIR). SYSTEM is the
# target's CMAKE_SYSTEM_NAME. A cross build passes its TOOLCHAIN file and
# the EMULATOR that runs its programs.
cmake_minimum_required(VERSION 3.16)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    string(REPLACE ";" " " command "${ARGN}")
    message(FATAL_ERROR "failed (${rc}): ${command}")
  endif()
endfunction()

set(consumer_dir ${SOURCE_DIR}/tests/packaging/consumer)
set(cmake_consumer
  ${CMAKE_COMMAND} -S ${consumer_dir} -B ${WORK_DIR} -DCMAKE_CXX_COMPILER=${CXX})
if(TOOLCHAIN)
  list(APPEND cmake_consumer -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN})
endif()
# The consumer program, through the emulator when there is one.
set(consumer_exe ${WORK_DIR}/consumer)
if(SYSTEM STREQUAL "Windows")
  set(consumer_exe ${WORK_DIR}/consumer.exe)
endif()
set(consumer ${EMULATOR} ${consumer_exe})
file(REMOVE_RECURSE ${WORK_DIR})

if(MODE STREQUAL "install")
  file(REMOVE_RECURSE ${PREFIX})
  run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX})
  # Exactly the public headers, and nothing of src/.
  file(GLOB_RECURSE headers RELATIVE ${PREFIX}/include ${PREFIX}/include/*)
  set(expected base/base.h database_interface/database_interface.h database_interface/export.h)
  list(SORT headers)
  if(NOT headers STREQUAL expected)
    message(FATAL_ERROR "installed headers: ${headers}; expected: ${expected}")
  endif()
  set(package_files
    ${LIBDIR}/cmake/database_interface/database_interfaceConfig.cmake
    ${LIBDIR}/cmake/database_interface/database_interfaceConfigVersion.cmake
    ${LIBDIR}/cmake/database_interface/database_interfaceTargets.cmake)
  if(SYSTEM STREQUAL "Windows")
    # DLLs beside the programs, import libraries to link with.
    set(expected_files
      ${BINDIR}/database_interface.dll ${BINDIR}/base.dll
      ${LIBDIR}/libdatabase_interface.dll.a ${LIBDIR}/libbase.dll.a)
  else()
    set(expected_files
      ${LIBDIR}/libdatabase_interface.so ${LIBDIR}/libdatabase_interface.so.1
      ${LIBDIR}/libdatabase_interface.so.1.24.0
      ${LIBDIR}/libbase.so ${LIBDIR}/libbase.so.1 ${LIBDIR}/libbase.so.1.24.0
      ${LIBDIR}/pkgconfig/database_interface.pc)
  endif()
  foreach(file IN LISTS expected_files package_files)
    if(NOT EXISTS ${PREFIX}/${file})
      message(FATAL_ERROR "not installed: ${file}")
    endif()
  endforeach()
elseif(MODE STREQUAL "find_package")
  run(${cmake_consumer} -DCMAKE_PREFIX_PATH=${PREFIX})
  run(${CMAKE_COMMAND} --build ${WORK_DIR})
  run(${consumer} ${WORK_DIR}/consumer.db)
elseif(MODE STREQUAL "pkg_config")
  find_program(pkg_config pkg-config)
  if(NOT pkg_config)
    message(FATAL_ERROR "pkg-config not found")
  endif()
  set(ENV{PKG_CONFIG_PATH} ${PREFIX}/${LIBDIR}/pkgconfig)
  run(${pkg_config} --print-errors --atleast-version=1.24 database_interface)
  execute_process(COMMAND ${pkg_config} --cflags --libs database_interface
    OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0 OR flags MATCHES "(^| )-W")
    message(FATAL_ERROR "pkg-config --cflags --libs database_interface (${rc}): ${flags}")
  endif()
  separate_arguments(flags UNIX_COMMAND "${flags}")
  file(MAKE_DIRECTORY ${WORK_DIR})
  run(${CXX} -std=c++17 ${consumer_dir}/consumer.cpp ${flags} -o ${WORK_DIR}/consumer)
  # Like any library outside the linker's default paths, it is found at run
  # time through LD_LIBRARY_PATH.
  run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${PREFIX}/${LIBDIR}
    ${WORK_DIR}/consumer ${WORK_DIR}/consumer.db)
elseif(MODE STREQUAL "add_subdirectory")
  run(${cmake_consumer} -DDATABASE_INTERFACE_SOURCE_DIR=${SOURCE_DIR})
  run(${CMAKE_COMMAND} --build ${WORK_DIR} -j 2)
  run(${consumer} ${WORK_DIR}/consumer.db)
else()
  message(FATAL_ERROR "MODE must be install, find_package, pkg_config or add_subdirectory")
endif()
