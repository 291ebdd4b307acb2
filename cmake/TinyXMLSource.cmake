# TinyXML, compiled with this build from the source of Debian's package: TinyXML_STATIC_LIBRARY is then a target. For
# targets for which Debian has no library. build/tinyxml keeps the source for later builds.
set(tinyxml_folder "${PROJECT_SOURCE_DIR}/build/tinyxml" CACHE PATH "Folder of the source of TinyXML")
execute_process(COMMAND "${PROJECT_SOURCE_DIR}/scripts/tinyxml_source.sh" "${tinyxml_folder}"
  COMMAND_ERROR_IS_FATAL ANY)
set(source "${tinyxml_folder}/tinyxml")
add_library(tinyxml STATIC
  "${source}/tinystr.cpp" "${source}/tinyxml.cpp" "${source}/tinyxmlerror.cpp" "${source}/tinyxmlparser.cpp")
set_target_properties(tinyxml PROPERTIES COMPILE_WARNING_AS_ERROR OFF)
target_compile_options(tinyxml PRIVATE ${VORLEN_TINYXML_OPTIONS})
# The folder of the source has more than this header.
file(COPY "${source}/tinyxml.h" "${source}/tinystr.h" DESTINATION "${PROJECT_BINARY_DIR}/tinyxml")
set(TinyXML_INCLUDE_DIR "${PROJECT_BINARY_DIR}/tinyxml")
set(TinyXML_STATIC_LIBRARY tinyxml)
