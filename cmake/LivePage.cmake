# The live page: live.html, one file with the scripts and styles of live/page and the module in it. Two targets:
#   live_engine  engine.mjs, the engine alone, for tests and benchmarks
#   live_page    live.html
# VORLEN_WASM is the module. The scripts are bundled by esbuild.
find_program(ESBUILD_PROGRAM esbuild REQUIRED)
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(page "${PROJECT_SOURCE_DIR}/live/page")
set(folder "${PROJECT_BINARY_DIR}/live")
file(GLOB_RECURSE page_files CONFIGURE_DEPENDS "${page}/*" "${PROJECT_SOURCE_DIR}/examples/*.xml")
list(APPEND page_files "${PROJECT_SOURCE_DIR}/live/page_data.py" "${PROJECT_SOURCE_DIR}/python/vorlen/_recipe/elements.py"
  "${PROJECT_SOURCE_DIR}/python/vorlen/assets/page.css")
# The libraries are those of Debian: CodeMirror, d3.
set(bundle "${CMAKE_COMMAND}" -E env NODE_PATH=/usr/share/nodejs "${ESBUILD_PROGRAM}" --bundle --minify --target=es2020 --log-level=warning)
set(embed --alias:vorlen-module=${VORLEN_WASM} --alias:vorlen-worker=${folder}/worker.txt
  --loader:.wasm=binary --loader:.txt=text --loader:.xml=text)

add_custom_command(OUTPUT "${folder}/worker.txt"
  COMMAND ${bundle} --format=iife "${page}/worker.js" "--outfile=${folder}/worker.txt"
  DEPENDS ${page_files} VERBATIM)
add_custom_command(OUTPUT "${folder}/engine.mjs"
  COMMAND ${bundle} --format=esm ${embed} "${page}/engine.js" "--outfile=${folder}/engine.mjs"
  DEPENDS ${page_files} "${folder}/worker.txt" vorlen_module "${VORLEN_WASM}" VERBATIM)
add_custom_command(OUTPUT "${folder}/live.html"
  COMMAND ${bundle} --format=iife ${embed} "${page}/start.js" "--outfile=${folder}/main.js"
  COMMAND ${bundle} "${page}/page.css" "--outfile=${folder}/page.css"
  COMMAND Python3::Interpreter -B "${PROJECT_SOURCE_DIR}/live/page_data.py" "${PROJECT_VERSION}" "${folder}/page_data.json"
  COMMAND "${CMAKE_COMMAND}" "-DPAGE=${page}/index.html" "-DFOLDER=${folder}"
    -P "${PROJECT_SOURCE_DIR}/cmake/assemble_page.cmake"
  DEPENDS ${page_files} "${folder}/worker.txt" vorlen_module "${VORLEN_WASM}" "${PROJECT_SOURCE_DIR}/cmake/assemble_page.cmake" VERBATIM)
add_custom_target(live_engine ALL DEPENDS "${folder}/engine.mjs")
add_custom_target(live_page ALL DEPENDS "${folder}/live.html")
