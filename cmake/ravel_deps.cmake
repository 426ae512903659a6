# The libraries ravel reads evidence formats through, each optional: a build without one lacks only
# what it reads. Included by the main build and by the fuzz targets, which compile the same sources.
#   libewf (Debian libewf-dev, found with pkg-config): the -ewf road for E01 images.
#   zlib (Debian zlib1g-dev): the compressed grains of streamOptimized VMDK disks.
#   libsqlite3 (Debian libsqlite3-dev, found with pkg-config): the case database of -sqlite.
option(RAVEL_EWF "Read E01 images through libewf when it is installed" ON)
option(RAVEL_ZLIB "Read compressed VMDK grains through zlib when it is installed" ON)
option(RAVEL_SQLITE "Write the -sqlite case database through libsqlite3 when it is installed" ON)

set(RAVEL_HAVE_EWF OFF)
if(RAVEL_EWF)
  find_package(PkgConfig QUIET)
  if(PKG_CONFIG_FOUND)
    pkg_check_modules(LIBEWF QUIET IMPORTED_TARGET libewf)
  endif()
  if(LIBEWF_FOUND)
    set(RAVEL_HAVE_EWF ON)
  else()
    message(STATUS "libewf not found: -ewf is not offered in this build (Debian package libewf-dev)")
  endif()
endif()

set(RAVEL_HAVE_ZLIB OFF)
if(RAVEL_ZLIB)
  find_package(ZLIB QUIET)
  if(ZLIB_FOUND)
    set(RAVEL_HAVE_ZLIB ON)
  else()
    message(STATUS "zlib not found: streamOptimized VMDK disks are refused (Debian package zlib1g-dev)")
  endif()
endif()

set(RAVEL_HAVE_SQLITE OFF)
if(RAVEL_SQLITE)
  find_package(PkgConfig QUIET)
  if(PKG_CONFIG_FOUND)
    pkg_check_modules(SQLITE3 QUIET IMPORTED_TARGET sqlite3)
  endif()
  if(SQLITE3_FOUND)
    set(RAVEL_HAVE_SQLITE ON)
  else()
    message(STATUS "libsqlite3 not found: -sqlite is not offered in this build (Debian package libsqlite3-dev)")
  endif()
endif()

# Links `target` with what was found and tells its sources so, through RAVEL_HAVE_EWF, RAVEL_HAVE_ZLIB
# and RAVEL_HAVE_SQLITE.
function(ravel_use_deps target)
  if(RAVEL_HAVE_EWF)
    # libewf carries its own copy of libbfio: linking the separate libbfio as well would mix the two.
    target_link_libraries(${target} PUBLIC PkgConfig::LIBEWF)
    target_compile_definitions(${target} PUBLIC RAVEL_HAVE_EWF=1)
  endif()
  if(RAVEL_HAVE_ZLIB)
    target_link_libraries(${target} PUBLIC ZLIB::ZLIB)
    target_compile_definitions(${target} PUBLIC RAVEL_HAVE_ZLIB=1)
  endif()
  if(RAVEL_HAVE_SQLITE)
    target_link_libraries(${target} PUBLIC PkgConfig::SQLITE3)
    target_compile_definitions(${target} PUBLIC RAVEL_HAVE_SQLITE=1)
  endif()
endfunction()
