# Fails when a file under src/ includes by a path that climbs out of its folder ("../"): such an
# include is found beside the file, not in its layer's view, and would pass the layer check.
file(GLOB_RECURSE files ${SRC}/*.h ${SRC}/*.cpp)
foreach(file ${files})
  file(STRINGS ${file} climbing REGEX "^[ \t]*#[ \t]*include[ \t]*\"[^\"]*\\.\\./")
  if(climbing)
    message(FATAL_ERROR "${file}: ${climbing}\nInclude by the path under src/ instead, so the layer check sees it.")
  endif()
endforeach()
file(TOUCH ${STAMP})
