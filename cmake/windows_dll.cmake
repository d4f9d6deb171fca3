# How our shared libraries look on Windows: database_interface.dll and
# base.dll, without the `lib` prefix that MinGW would add, each with a version
# resource taken from the project() version, so the file version, the
# product version and the library version never disagree. Elsewhere nothing
# changes. Include it at directory scope, before the first call: the resource
# compiler is enabled here, where a function may not do it.
if(WIN32)
  enable_language(RC)
endif()

set(DATABASE_INTERFACE_VERSION_RC_IN ${CMAKE_CURRENT_LIST_DIR}/version.rc.in)

# database_interface_windows_dll(<target> <description>)
# <description> becomes the FileDescription: what the file is, in a line.
function(database_interface_windows_dll target description)
  if(NOT WIN32)
    return()
  endif()
  # The import library keeps its prefix (libbase.dll.a): MinGW's name for
  # it, the one `-lbase` looks for first. MSVC names it base.lib itself.
  set_target_properties(${target} PROPERTIES PREFIX "")

  set(DLL_NAME ${target})
  set(DLL_FILE_NAME ${target}${CMAKE_SHARED_LIBRARY_SUFFIX})
  set(DLL_DESCRIPTION "${description}")
  set(DLL_PRODUCT ${PROJECT_NAME})
  set(DLL_VERSION ${PROJECT_VERSION})
  # VERSIONINFO wants four numbers: 1.24.0 is 1,24,0,0.
  set(numbers "")
  foreach(part MAJOR MINOR PATCH TWEAK)
    if("${PROJECT_VERSION_${part}}" STREQUAL "")
      list(APPEND numbers 0)
    else()
      list(APPEND numbers ${PROJECT_VERSION_${part}})
    endif()
  endforeach()
  string(JOIN "," DLL_VERSION_COMMAS ${numbers})
  set(rc ${CMAKE_CURRENT_BINARY_DIR}/${target}_version.rc)
  configure_file(${DATABASE_INTERFACE_VERSION_RC_IN} ${rc} @ONLY)
  target_sources(${target} PRIVATE ${rc})
endfunction()

# database_interface_dlls_beside(<executable>)
# Windows looks for a program's DLLs beside it (then on PATH): after each link
# the DLLs of ours that <executable> needs are copied there, so it runs from
# the build tree as it is, under Wine too. CMake older than 3.21 cannot list
# them: put their directories on PATH instead.
function(database_interface_dlls_beside target)
  if(NOT WIN32 OR CMAKE_VERSION VERSION_LESS 3.21)
    return()
  endif()
  # One quoted argument, expanded into a command line only when there is a
  # DLL to copy: `cmake -E copy_if_different` with no file fails.
  set(dlls $<TARGET_RUNTIME_DLLS:${target}>)
  set(copy ${CMAKE_COMMAND} -E copy_if_different ${dlls} $<TARGET_FILE_DIR:${target}>)
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND "$<$<BOOL:${dlls}>:${copy}>"
    COMMAND_EXPAND_LISTS
    VERBATIM)
endfunction()
