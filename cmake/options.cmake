# What is built besides the library: on in a top-level build where the packages are found. Nothing here is needed
# to build the library itself.

option(CVSD_QOR_STATIC "Build and install a static library too" OFF)
option(CVSD_QOR_WARNINGS_AS_ERRORS "Treat warnings as errors" OFF)
option(CVSD_QOR_COVERAGE "Instrument everything for line and branch coverage" OFF)
set(CVSD_QOR_SANITIZE "" CACHE STRING "Sanitizers to build everything with, for example address,undefined")

# offer(NAME WHAT TARGET_OR_VARIABLE... PACKAGES): declares option NAME, on by default in a top-level build where all
# of the named targets and variables exist; says what is left out and which Debian packages bring it.
function(offer name what packages)
  set(missing FALSE)
  foreach(need IN LISTS ARGN)
    if(NOT TARGET ${need} AND NOT ${need})
      set(missing TRUE)
    endif()
  endforeach()
  if(NOT PROJECT_IS_TOP_LEVEL)
    option(${name} "Build the ${what}" OFF)
  elseif(missing)
    option(${name} "Build the ${what}" OFF)
    if(NOT ${name})
      message(STATUS "Leaving out the ${what}: Debian packages that bring them: ${packages}")
    endif()
  else()
    option(${name} "Build the ${what}" ON)
  endif()
endfunction()

if(PROJECT_IS_TOP_LEVEL)
  find_package(PkgConfig QUIET)
  find_package(GTest QUIET)
  find_package(benchmark QUIET)
  find_package(CLI11 QUIET)
  if(PkgConfig_FOUND)
    pkg_check_modules(sndfile QUIET IMPORTED_TARGET sndfile)
    pkg_check_modules(speexdsp QUIET IMPORTED_TARGET speexdsp)
  endif()
endif()

offer(CVSD_QOR_BUILD_TESTS "tests" "libgtest-dev" GTest::gtest_main)
offer(CVSD_QOR_BUILD_EXAMPLES "examples"
  "libcli11-dev libsndfile1-dev libspeexdsp-dev pkg-config" CLI11::CLI11 PkgConfig::sndfile PkgConfig::speexdsp)
offer(CVSD_QOR_BUILD_BENCHMARKS "benchmarks" "libbenchmark-dev" benchmark::benchmark)
