# The libraries ravel reads evidence formats through, each optional: a build without one lacks only
# what it reads. Included by the main build and by the fuzz targets, which compile the same sources.
#   libewf (Debian libewf-dev, found with pkg-config): the -ewf road for E01 images.
#   zlib (Debian zlib1g-dev): the compressed grains of streamOptimized VMDK disks.
#   libesedb (Debian libesedb-dev, found with pkg-config): WebCacheV01.dat, the IE10+ cache database; with
#   libbfio's header (libesedb-dev brings it) a database is also opened from memory, for tests and fuzzers.
#   libesedb is not linked but loaded at run time into a namespace of its own (src/webcache says why),
#   by its soname, RAVEL_ESEDB_SONAME.
#   libsqlite3 (Debian libsqlite3-dev, found with pkg-config): the case database of -sqlite.
#   libtsk (Debian libtsk-dev, found with pkg-config): the -image road for evidence images and their files.
#   libtsk is not linked but loaded by its soname, RAVEL_TSK_SONAME, when the first image is opened: the
#   thirty libraries it brings would otherwise be loaded by every run.
option(RAVEL_EWF "Read E01 images through libewf when it is installed" ON)
option(RAVEL_ZLIB "Read compressed VMDK grains through zlib when it is installed" ON)
option(RAVEL_ESEDB "Read WebCache databases through libesedb when it is installed" ON)
set(RAVEL_ESEDB_SONAME "libesedb.so.1" CACHE STRING "The libesedb that a build with RAVEL_ESEDB loads")
option(RAVEL_SQLITE "Write the -sqlite case database through libsqlite3 when it is installed" ON)
option(RAVEL_TSK "Read evidence images and their file systems through libtsk when it is installed" ON)
set(RAVEL_TSK_SONAME "libtsk.so.19" CACHE STRING "The libtsk that a build with RAVEL_TSK loads")

find_package(PkgConfig QUIET)
# RAVEL_HAVE_<name> is ON when the switch RAVEL_<name> is on and pkg-config finds `module` (its variables
# and target named by `prefix`); otherwise `why` is said.
macro(ravel_find_module name prefix module why)
  set(RAVEL_HAVE_${name} OFF)
  if(RAVEL_${name})
    if(PKG_CONFIG_FOUND)
      pkg_check_modules(${prefix} QUIET IMPORTED_TARGET ${module})
    endif()
    if(${prefix}_FOUND)
      set(RAVEL_HAVE_${name} ON)
    else()
      message(STATUS "${why}")
    endif()
  endif()
endmacro()

ravel_find_module(EWF LIBEWF libewf "libewf not found: -ewf is not offered in this build (Debian package libewf-dev)")

set(RAVEL_HAVE_ZLIB OFF)
if(RAVEL_ZLIB)
  find_package(ZLIB QUIET)
  if(ZLIB_FOUND)
    set(RAVEL_HAVE_ZLIB ON)
  else()
    message(STATUS "zlib not found: streamOptimized VMDK disks are refused (Debian package zlib1g-dev)")
  endif()
endif()

ravel_find_module(ESEDB LIBESEDB libesedb
  "libesedb not found: WebCache databases are not read in this build (Debian package libesedb-dev)")
set(RAVEL_HAVE_BFIO OFF)
if(RAVEL_HAVE_ESEDB AND PKG_CONFIG_FOUND)
  pkg_check_modules(LIBBFIO QUIET IMPORTED_TARGET libbfio)
  set(RAVEL_HAVE_BFIO ${LIBBFIO_FOUND})
endif()

ravel_find_module(SQLITE SQLITE3 sqlite3
  "libsqlite3 not found: -sqlite is not offered in this build (Debian package libsqlite3-dev)")
ravel_find_module(TSK LIBTSK tsk "libtsk not found: -image is not offered in this build (Debian package libtsk-dev)")

# Links `target` with what was found and tells its sources so, through RAVEL_HAVE_EWF, RAVEL_HAVE_ZLIB,
# RAVEL_HAVE_ESEDB, RAVEL_HAVE_BFIO, RAVEL_HAVE_SQLITE and RAVEL_HAVE_TSK.
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
  if(RAVEL_HAVE_SQLITE)
    target_link_libraries(${target} PUBLIC PkgConfig::SQLITE3)
    target_compile_definitions(${target} PUBLIC RAVEL_HAVE_SQLITE=1)
  endif()
  if(RAVEL_HAVE_TSK)
    target_include_directories(${target} PUBLIC ${LIBTSK_INCLUDE_DIRS})
    target_link_libraries(${target} PUBLIC ${CMAKE_DL_LIBS})
    target_compile_definitions(${target} PUBLIC RAVEL_HAVE_TSK=1 RAVEL_TSK_SONAME="${RAVEL_TSK_SONAME}")
  endif()
endfunction()
