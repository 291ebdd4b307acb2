# The live page: live.html, one file with the scripts and styles of live/page and the module in it. Two targets:
#   live_engine  engine.mjs, the engine alone, for tests and benchmarks
#   live_page    live.html
# VORLEN_WASM is the module. The scripts are bundled by esbuild. The page starts with the licences of what is in it.
find_program(ESBUILD_PROGRAM esbuild REQUIRED)
set(licences "")
foreach(package libc++-19-dev-wasm32 wasi-libc libtinyxml-dev libfmt-dev nlohmann-json3-dev libfast-float-dev)
  list(APPEND licences "/usr/share/doc/${package}/copyright")
endforeach()
set(page "${PROJECT_SOURCE_DIR}/live/page")
set(folder "${PROJECT_BINARY_DIR}/live")
file(GLOB_RECURSE page_files CONFIGURE_DEPENDS "${page}/*")
set(bundle "${ESBUILD_PROGRAM}" --bundle --minify --target=es2020 --log-level=warning)
set(embed --alias:vorlen-module=${VORLEN_WASM} --alias:vorlen-worker=${folder}/worker.txt
  --loader:.wasm=binary --loader:.txt=text)

add_custom_command(OUTPUT "${folder}/worker.txt"
  COMMAND ${bundle} --format=iife "${page}/worker.js" "--outfile=${folder}/worker.txt"
  DEPENDS ${page_files} VERBATIM)
add_custom_command(OUTPUT "${folder}/engine.mjs"
  COMMAND ${bundle} --format=esm ${embed} "${page}/engine.js" "--outfile=${folder}/engine.mjs"
  DEPENDS ${page_files} "${folder}/worker.txt" vorlen_module "${VORLEN_WASM}" VERBATIM)
add_custom_command(OUTPUT "${folder}/live.html"
  COMMAND ${bundle} --format=iife ${embed} "${page}/main.js" "--outfile=${folder}/main.js"
  COMMAND ${bundle} "${page}/page.css" "--outfile=${folder}/page.css"
  COMMAND "${CMAKE_COMMAND}" "-DPAGE=${page}/index.html" "-DFOLDER=${folder}" "-DLICENCES=${licences}"
    -P "${PROJECT_SOURCE_DIR}/cmake/assemble_page.cmake"
  DEPENDS ${page_files} "${folder}/worker.txt" vorlen_module "${VORLEN_WASM}" "${PROJECT_SOURCE_DIR}/cmake/assemble_page.cmake" VERBATIM)
add_custom_target(live_engine ALL DEPENDS "${folder}/engine.mjs")
add_custom_target(live_page ALL DEPENDS "${folder}/live.html")
