# Writes database_interface.pc at install time, for the prefix being installed
# to: the file holds absolute paths, and `cmake --install --prefix` may name a
# prefix other than the configured one.
# `system_sqlite`: whether the library links the system SQLite, which a static
# link of it would need too.
function(database_interface_write_pc template output prefix libdir includedir version
         system_sqlite)
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
  set(DATABASE_INTERFACE_PC_REQUIRES_PRIVATE "")
  if(system_sqlite)
    set(DATABASE_INTERFACE_PC_REQUIRES_PRIVATE "Requires.private: sqlite3\n")
  endif()
  configure_file("${template}" "${output}" @ONLY)
endfunction()
