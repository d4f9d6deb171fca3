# Writes database_interface.pc at install time, for the prefix being installed
# to: the file holds absolute paths, and `cmake --install --prefix` may name a
# prefix other than the configured one.
function(database_interface_write_pc template output prefix libdir includedir version)
  set(CMAKE_INSTALL_PREFIX "${prefix}")
  set(CMAKE_INSTALL_FULL_LIBDIR "${libdir}")
  set(CMAKE_INSTALL_FULL_INCLUDEDIR "${includedir}")
  if(NOT IS_ABSOLUTE "${libdir}")
    set(CMAKE_INSTALL_FULL_LIBDIR "${prefix}/${libdir}")
  endif()
  if(NOT IS_ABSOLUTE "${includedir}")
    set(CMAKE_INSTALL_FULL_INCLUDEDIR "${prefix}/${includedir}")
  endif()
  set(PROJECT_VERSION "${version}")
  configure_file("${template}" "${output}" @ONLY)
endfunction()
