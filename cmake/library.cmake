# The library: one set of objects for the shared library and, with CVSD_QOR_STATIC, for the static one.

set(CVSD_QOR_SOURCES
  cvsd/decoder.cpp
  cvsd/encoder.cpp
  pitchtrack/coarse_candidates.cpp
  pitchtrack/coarse_choice.cpp
  pitchtrack/coarse_correlation.cpp
  pitchtrack/coarse_pitch.cpp
  pitchtrack/decimation.cpp
  pitchtrack/refinement.cpp
  pitchtrack/tracker.cpp
  plc/construct.cpp
  plc/erased_frame.cpp
  plc/exported.cpp
  plc/good_frame.cpp
  plc/narrowband_pitch.cpp
  plc/primitives.cpp)

# The warnings for all code of this project.
function(cvsd_qor_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wconversion -Wshadow)
  if(CVSD_QOR_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

if(CVSD_QOR_SANITIZE)
  add_compile_options(-fsanitize=${CVSD_QOR_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${CVSD_QOR_SANITIZE})
endif()
if(CVSD_QOR_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic) # a test runs on several threads
  add_link_options(--coverage)
endif()

# Systems without a loader (CMAKE_SYSTEM_NAME Generic) have static libraries only.
get_property(has_shared GLOBAL PROPERTY TARGET_SUPPORTS_SHARED_LIBS)

set(public_include
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

add_library(cvsd_qor_objects OBJECT ${CVSD_QOR_SOURCES})
target_compile_features(cvsd_qor_objects PRIVATE cxx_std_20)
target_include_directories(cvsd_qor_objects PRIVATE ${PROJECT_SOURCE_DIR} ${public_include})
set_target_properties(cvsd_qor_objects PROPERTIES
  CXX_EXTENSIONS OFF
  CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON
  POSITION_INDEPENDENT_CODE ${has_shared})
# The library uses nothing from the C++ run-time library, and from libc only memset, memcpy and memmove. A distribution
# or the NDK may turn on stack guards and checked variants of these functions: here they are off.
target_compile_options(cvsd_qor_objects PRIVATE
  -fno-exceptions -fno-rtti -fno-unwind-tables -fno-asynchronous-unwind-tables -fno-threadsafe-statics
  -fno-stack-protector -U_FORTIFY_SOURCE ${CVSD_QOR_LIBRARY_FLAGS})
if(CVSD_QOR_NARROWBAND_ONLY)
  target_compile_definitions(cvsd_qor_objects PRIVATE CVSD_QOR_NARROWBAND_ONLY)
endif()
if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES AND NOT CMAKE_CXX_FLAGS MATCHES "-O")
  # A project that sets no level of optimisation gets this one, not the compiler's default, which is none.
  target_compile_options(cvsd_qor_objects BEFORE PRIVATE -O3)
endif()
cvsd_qor_warnings(cvsd_qor_objects)

# Makes a library of the objects, which users link as cvsd_qor::NAME. The C compiler links it: it has no static
# constructors or destructors.
function(cvsd_qor_library name kind)
  add_library(${name} ${kind} $<TARGET_OBJECTS:cvsd_qor_objects>)
  add_library(cvsd_qor::${name} ALIAS ${name})
  target_include_directories(${name} INTERFACE ${public_include})
  set_target_properties(${name} PROPERTIES OUTPUT_NAME cvsd_qor LINKER_LANGUAGE C)
endfunction()

if(NOT has_shared)
  # One library, under the name of the static one too.
  cvsd_qor_library(cvsd_qor STATIC)
  add_library(cvsd_qor_static INTERFACE)
  add_library(cvsd_qor::cvsd_qor_static ALIAS cvsd_qor_static)
  target_link_libraries(cvsd_qor_static INTERFACE cvsd_qor)
  return()
endif()

cvsd_qor_library(cvsd_qor SHARED)
if(CVSD_QOR_STATIC)
  cvsd_qor_library(cvsd_qor_static STATIC)
endif()
if(CVSD_QOR_SANITIZE OR CVSD_QOR_COVERAGE)
  set_target_properties(cvsd_qor PROPERTIES LINKER_LANGUAGE CXX)
endif()

# The exported names are listed once, in the form that ELF linkers read; other forms are made of it.
set(export_list ${PROJECT_SOURCE_DIR}/cmake/exports.map)
set_target_properties(cvsd_qor PROPERTIES LINK_DEPENDS ${export_list})
if(WIN32 OR APPLE)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${export_list})
  file(STRINGS ${export_list} exports REGEX "^    [A-Za-z]")
  list(TRANSFORM exports REPLACE "[ ;]" "")
endif()
if(WIN32)
  # The definition file of the DLL. DATA marks the tables, which are the names without an underscore; without it
  # they would be exported as functions.
  list(TRANSFORM exports REPLACE "^[^_]+$" "\\0 DATA")
  list(JOIN exports "\n" exports)
  file(CONFIGURE OUTPUT cvsd_qor.def CONTENT "EXPORTS\n${exports}\n")
  target_sources(cvsd_qor PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/cvsd_qor.def)
elseif(APPLE)
  # C names have a leading underscore. A library's references to its own names are bound inside it by default.
  list(TRANSFORM exports PREPEND _)
  list(JOIN exports "\n" exports)
  file(CONFIGURE OUTPUT exports.txt CONTENT "${exports}\n")
  target_link_options(cvsd_qor PRIVATE
    -Wl,-exported_symbols_list,${CMAKE_CURRENT_BINARY_DIR}/exports.txt -Wl,-dead_strip_dylibs)
else()
  # ELF. With -Bsymbolic the library's references to its own functions and tables are bound inside it, even if the
  # host program defines the same names. The soname has no suffix; programs linked with the library look for a file of
  # that name.
  target_compile_options(cvsd_qor_objects PRIVATE -fno-semantic-interposition)
  target_link_options(cvsd_qor PRIVATE
    -Wl,--version-script=${export_list} -Wl,-Bsymbolic -Wl,-soname,libcvsd_qor
    -Wl,-z,relro,-z,now -Wl,-z,noexecstack -Wl,--as-needed)
  set_target_properties(cvsd_qor PROPERTIES NO_SONAME ON)
  set(soname_link $<TARGET_FILE_DIR:cvsd_qor>/libcvsd_qor)
  add_custom_command(TARGET cvsd_qor POST_BUILD
    COMMAND ${CMAKE_COMMAND} -E create_symlink $<TARGET_FILE_NAME:cvsd_qor> ${soname_link})
  if(NOT CVSD_QOR_SANITIZE AND NOT CVSD_QOR_COVERAGE)
    # Without the start files: they have the only writable data.
    target_link_options(cvsd_qor PRIVATE -nostartfiles -Wl,-z,defs)
  endif()
  if(ANDROID)
    target_link_options(cvsd_qor PRIVATE -Wl,-z,max-page-size=16384)
  endif()
endif()
