# The libraries ravel reads evidence formats through, each optional: a build without one lacks only
# what it reads. Included by the main build and by the fuzz targets, which compile the same sources.
#   libewf (Debian libewf-dev, found with pkg-config): the -ewf road for E01 images.
#   zlib (Debian zlib1g-dev): the compressed grains of streamOptimized VMDK disks.
#   libesedb (Debian libesedb-dev, found with pkg-config): WebCacheV01.dat, the IE10+ cache database; with
#   libbfio's header (libesedb-dev brings it) a database is also opened from memory, for tests and fuzzers.
#   libesedb is not linked but loaded at run time into a namespace of its own (src/webcache says why),
#   by its soname, RAVEL_ESEDB_SONAME.
option(RAVEL_EWF "Read E01 images through libewf when it is installed" ON)
option(RAVEL_ZLIB "Read compressed VMDK grains through zlib when it is installed" ON)
option(RAVEL_ESEDB "Read WebCache databases through libesedb when it is installed" ON)
set(RAVEL_ESEDB_SONAME "libesedb.so.1" CACHE STRING "The libesedb that a build with RAVEL_ESEDB loads")

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

set(RAVEL_HAVE_ESEDB OFF)
set(RAVEL_HAVE_BFIO OFF)
if(RAVEL_ESEDB)
  find_package(PkgConfig QUIET)
  if(PKG_CONFIG_FOUND)
    pkg_check_modules(LIBESEDB QUIET IMPORTED_TARGET libesedb)
    pkg_check_modules(LIBBFIO QUIET IMPORTED_TARGET libbfio)
  endif()
  if(LIBESEDB_FOUND)
    set(RAVEL_HAVE_ESEDB ON)
    set(RAVEL_HAVE_BFIO ${LIBBFIO_FOUND})
  else()
    message(STATUS "libesedb not found: WebCache databases are not read in this build (Debian package libesedb-dev)")
  endif()
endif()

# Links `target` with what was found and tells its sources so, through RAVEL_HAVE_EWF, RAVEL_HAVE_ZLIB,
# RAVEL_HAVE_ESEDB and RAVEL_HAVE_BFIO.
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
  if(RAVEL_HAVE_ESEDB)
    target_include_directories(${target} PUBLIC ${LIBESEDB_INCLUDE_DIRS} ${LIBBFIO_INCLUDE_DIRS})
    target_link_libraries(${target} PUBLIC ${CMAKE_DL_LIBS})
    target_compile_definitions(${target} PUBLIC RAVEL_HAVE_ESEDB=1 RAVEL_ESEDB_SONAME="${RAVEL_ESEDB_SONAME}")
    if(RAVEL_HAVE_BFIO)
      target_compile_definitions(${target} PUBLIC RAVEL_HAVE_BFIO=1)
    endif()
  endif()
endfunction()
