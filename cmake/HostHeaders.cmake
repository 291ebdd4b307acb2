# vorlen_host_headers(FOLDER library...): libraries that are only headers, for a build for another system. FOLDER is set
# to a folder with links to them alone: the other headers of the building machine must not be seen.
function(vorlen_host_headers folder)
  set(headers "${CMAKE_CURRENT_BINARY_DIR}/host_headers")
  file(MAKE_DIRECTORY "${headers}")
  foreach(library ${ARGN})
    find_path(${library}_FOLDER "${library}" PATHS /usr/local/include /usr/include REQUIRED NO_DEFAULT_PATH
      NO_CMAKE_FIND_ROOT_PATH)
    mark_as_advanced(${library}_FOLDER)
    file(CREATE_LINK "${${library}_FOLDER}/${library}" "${headers}/${library}" SYMBOLIC)
  endforeach()
  set(${folder} "${headers}" PARENT_SCOPE)
endfunction()
