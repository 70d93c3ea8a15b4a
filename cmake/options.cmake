# The options, and what is built besides the library. The library itself needs none of the packages that are looked for.

option(CVSD_QOR_INSTALL "Install and package the library" ${PROJECT_IS_TOP_LEVEL})
option(CVSD_QOR_STATIC "Build and install a static library too" OFF)
option(CVSD_QOR_NARROWBAND_ONLY "Conceal at 8000 Hz alone: 16000 Hz is refused and the pitch tracker not linked" OFF)
option(CVSD_QOR_WARNINGS_AS_ERRORS "Treat warnings as errors" OFF)
option(CVSD_QOR_BUILD_FUZZERS "Build the fuzz targets; clang only" OFF)
option(CVSD_QOR_COVERAGE "Instrument everything for line and branch coverage" OFF)
set(CVSD_QOR_BOARD "" CACHE STRING "Emulated board to build the programs of firmware/ for")
set(CVSD_QOR_LIBRARY_FLAGS "" CACHE STRING "Further compiler flags for the library alone, for example -O2")
set(CVSD_QOR_SANITIZE "" CACHE STRING "Sanitizers to build everything with, for example address,undefined")

# Only the library is built: as a part of another project; without 16000 Hz, which the programs use; and without an
# operating system, unless the tests are asked for.
if(NOT PROJECT_IS_TOP_LEVEL OR CVSD_QOR_NARROWBAND_ONLY
   OR (CMAKE_SYSTEM_NAME STREQUAL Generic AND NOT CVSD_QOR_BUILD_TESTS))
  return()
endif()

# offer(NAME WHAT PACKAGES NEED...): declares option NAME, which is on if all needs (targets, variables) are there. If
# one is missing, prints what is left out and which Debian packages have it; if the option was set, that is an error.
function(offer name what packages)
  set(found TRUE)
  foreach(need IN LISTS ARGN)
    if(NOT TARGET ${need} AND NOT ${need})
      set(found FALSE)
    endif()
  endforeach()
  if(found)
    option(${name} "Build the ${what}" ON)
  elseif(${name})
    message(FATAL_ERROR "The ${what} cannot be built; Debian packages that have what is missing: ${packages}")
  elseif(NOT DEFINED ${name})
    message(STATUS "Leaving out the ${what}; Debian packages that have what is missing: ${packages}")
  endif()
endfunction()

find_package(PkgConfig QUIET)
find_package(CLI11 QUIET)
find_package(GTest QUIET)
find_package(benchmark QUIET)
find_package(nlohmann_json QUIET)
find_package(Threads QUIET)
if(PkgConfig_FOUND)
  pkg_check_modules(kissfft QUIET IMPORTED_TARGET kissfft-float)
  pkg_check_modules(sndfile QUIET IMPORTED_TARGET sndfile)
  pkg_check_modules(speexdsp QUIET IMPORTED_TARGET speexdsp)
endif()
# For cross-compilation there is no GoogleTest library of the target, but Debian's package has the sources too.
if(NOT GTest_FOUND AND PkgConfig_FOUND AND EXISTS /usr/src/googletest/CMakeLists.txt)
  set(BUILD_GMOCK OFF CACHE INTERNAL "")
  set(INSTALL_GTEST OFF CACHE INTERNAL "")
  add_subdirectory(/usr/src/googletest googletest EXCLUDE_FROM_ALL SYSTEM)
  target_compile_options(gtest PRIVATE -fno-exceptions) # not every machine has them
endif()

option(CVSD_QOR_BUILD_EXAMPLES "Build the examples" ON)
offer(CVSD_QOR_BUILD_TESTS "tests" "libgtest-dev pkg-config" GTest::gtest_main PkgConfig_FOUND)
offer(CVSD_QOR_BUILD_VOICE_LINK "example voice_link"
  "libcli11-dev libkissfft-dev libsndfile1-dev libspeexdsp-dev nlohmann-json3-dev pkg-config"
  CLI11::CLI11 nlohmann_json::nlohmann_json PkgConfig::kissfft PkgConfig::sndfile PkgConfig::speexdsp Threads::Threads)
offer(CVSD_QOR_BUILD_BENCHMARKS "benchmarks" "libbenchmark-dev" benchmark::benchmark)
