# The page of "vorlen live", with the solver as a WebAssembly module: built with the preset wasi in a folder of this
# build. Without the compiler for WebAssembly everything else works.
set(live_folder "${PROJECT_BINARY_DIR}/wasi")
set(live_page "${live_folder}/live/live.html")
find_program(WASM_COMPILER clang++-19)
find_program(WASM_LINKER wasm-ld-19)
find_program(ESBUILD_PROGRAM esbuild)
find_file(WASM_LIBC wasm32-wasi/stdlib.h PATHS /usr/include NO_DEFAULT_PATH)
find_file(WASM_LIBCXX wasm32-wasi/c++/v1/vector PATHS /usr/lib/llvm-19/include NO_DEFAULT_PATH)
mark_as_advanced(WASM_COMPILER WASM_LINKER ESBUILD_PROGRAM WASM_LIBC WASM_LIBCXX)

set(missing "")
if(NOT (WASM_COMPILER AND WASM_LINKER AND ESBUILD_PROGRAM AND WASM_LIBC AND WASM_LIBCXX))
  set(missing "the Debian packages that scripts/setup.sh run installs for it")
else()
  execute_process(COMMAND "${PROJECT_SOURCE_DIR}/scripts/tinyxml_source.sh" "${PROJECT_SOURCE_DIR}/build/tinyxml"
    RESULT_VARIABLE failed ERROR_VARIABLE why OUTPUT_QUIET)
  if(NOT failed EQUAL 0)
    set(missing "the source of TinyXML:\n${why}")
  endif()
endif()
if(missing AND VORLEN_DEBIAN)
  message(FATAL_ERROR "The package vorlen needs ${missing} to be built")
elseif(missing)
  message(STATUS "No live page: it needs ${missing}")
  return()
endif()

set(warnings "")
if(NOT VORLEN_TESTS)
  set(warnings --compile-no-warning-as-error)
endif()
add_custom_command(OUTPUT "${live_folder}/build.ninja"
  COMMAND "${CMAKE_COMMAND}" --preset wasi ${warnings} -B "${live_folder}"
  WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}" COMMENT "Configuring the module of the live page" VERBATIM)
# Its own build finds out what has to be done.
add_custom_target(live ALL
  COMMAND "${CMAKE_COMMAND}" --build "${live_folder}"
  DEPENDS "${live_folder}/build.ninja" BYPRODUCTS "${live_page}" "${live_folder}/vorlen.wasm"
  COMMENT "Building the live page" VERBATIM)
add_dependencies(vorlen live)  # which has the command live
install(FILES "${live_page}" DESTINATION "${CMAKE_INSTALL_DATADIR}/vorlen")
