# What differs between the systems that a build may be for.
#   VORLEN_SYSTEM                folder of src/platform: posix or windows
#   VORLEN_PIC                   object files may go into a shared library
#   VORLEN_THREAD_LOCAL_OPTIONS  compiler options of the files with thread-local records
#   VORLEN_TINYXML_SOURCE        TinyXML is compiled with this build, where Debian has only that of the host
#   VORLEN_TINYXML_OPTIONS       its compiler options
#   vorlen_export_only(TARGET)   gives a shared library its name and its one exported function
#   vorlen_link_runtime(TARGET)  a program or a shared library that needs no library but those of the system, and has the same
#                                bytes whenever it is linked
set(VORLEN_SYSTEM posix)
if(WIN32)
  set(VORLEN_SYSTEM windows)
endif()

set(VORLEN_PIC ON)
if(VORLEN_MODULE OR WIN32)
  set(VORLEN_PIC OFF)  # slower in the module, which is not a shared library; not known on Windows
endif()

# Reserves the thread-local records when a thread starts. Otherwise their first use in a library opened by dlopen
# allocates, and the C library ends the process if that fails.
set(VORLEN_THREAD_LOCAL_OPTIONS -ftls-model=initial-exec)
if(WIN32 OR APPLE)
  set(VORLEN_THREAD_LOCAL_OPTIONS "")  # there is one model
endif()

set(VORLEN_TINYXML_SOURCE OFF)
if(VORLEN_MODULE OR CMAKE_CROSSCOMPILING)
  set(VORLEN_TINYXML_SOURCE ON)
endif()

set(VORLEN_TINYXML_OPTIONS -w)
if(WIN32)
  list(APPEND VORLEN_TINYXML_OPTIONS -include "${PROJECT_SOURCE_DIR}/src/platform/windows/ascii_classes.h")
endif()

function(vorlen_link_runtime target)
  if(WIN32)
    target_link_options(${target} PRIVATE -static LINKER:--no-insert-timestamp)
  endif()
endfunction()

function(vorlen_export_only target)
  set(folder "${PROJECT_SOURCE_DIR}/src/api")
  if(WIN32)
    # VorlenSolver.dll, libVorlenSolver.dll.a for mingw, VorlenSolver.lib for compilers that link like Microsoft's.
    set_target_properties(${target} PROPERTIES PREFIX "")
    target_sources(${target} PRIVATE "${folder}/vorlen_solver.def")
    find_program(LLD_LINK_PROGRAM NAMES lld-link-19 lld-link)
    mark_as_advanced(LLD_LINK_PROGRAM)
    if(LLD_LINK_PROGRAM)
      add_custom_command(TARGET ${target} POST_BUILD COMMAND "${LLD_LINK_PROGRAM}" /lib "/def:${folder}/vorlen_solver.def"
        /machine:x64 "/out:$<TARGET_FILE_DIR:${target}>/VorlenSolver.lib" VERBATIM)
    else()
      message(STATUS "No VorlenSolver.lib: it needs lld-link")
    endif()
    vorlen_link_runtime(${target})
    return()
  endif()
  if(APPLE)
    set(exported "${PROJECT_BINARY_DIR}/vorlen_solver.exported")
    file(WRITE "${exported}" "_runSurfChem\n")
    target_link_options(${target} PRIVATE "LINKER:-exported_symbols_list,${exported}")
    return()
  endif()
  set(version_script "${folder}/vorlen_solver.map")
  set_target_properties(${target} PROPERTIES LINK_DEPENDS "${version_script}")
  target_link_options(${target} PRIVATE "LINKER:--version-script=${version_script}")
  if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")  # the functions of a sanitizer may be in the program
    target_link_options(${target} PRIVATE "LINKER:--no-undefined")
  endif()
endfunction()
