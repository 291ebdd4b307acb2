# WebAssembly with Debian's clang 19, wasi-libc and libc++. No exceptions, no threads, no file streams. The archives of
# the host's ar have no index of symbols, which wasm-ld does not need. Vectors and the copying of blocks are in every
# browser since March 2023, and so is the conversion to integers without a test of the range.
set(CMAKE_SYSTEM_NAME Generic)
set(CMAKE_SYSTEM_PROCESSOR wasm32)
foreach(language C CXX)
  set(CMAKE_${language}_COMPILER_TARGET wasm32-wasi)
  set(CMAKE_${language}_FLAGS_INIT "-fignore-exceptions -mbulk-memory -msimd128 -mnontrapping-fptoint")
endforeach()
set(CMAKE_C_COMPILER clang-19)
set(CMAKE_CXX_COMPILER clang++-19)
set(CMAKE_AR /usr/bin/ar)
set(CMAKE_RANLIB /bin/true)
