# The library: one set of objects' sources, built as a shared object and, where asked for, as an archive.

set(CVSD_QOR_SOURCES
  cvsd/decoder.cpp
  cvsd/encoder.cpp
  pitchtrack/coarse_pitch.cpp
  pitchtrack/decimation.cpp
  pitchtrack/refinement.cpp
  pitchtrack/tracker.cpp
  plc/construct.cpp
  plc/erased_frame.cpp
  plc/good_frame.cpp
  plc/narrowband_pitch.cpp
  plc/primitives.cpp)

# Usage requirements and private settings common to the shared and the static library.
function(cvsd_qor_settings target)
  target_compile_features(${target} PRIVATE cxx_std_20)
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    POSITION_INDEPENDENT_CODE ON)
  # No unwind tables, no run-time type information, no guards for statics: nothing of the C++ run-time is needed.
  target_compile_options(${target} PRIVATE
    -fno-exceptions -fno-rtti -fno-unwind-tables -fno-asynchronous-unwind-tables -fno-threadsafe-statics)
endfunction()

# House warnings, for everything of our own.
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
  add_compile_options(--coverage)
  add_link_options(--coverage)
endif()

add_library(cvsd_qor SHARED ${CVSD_QOR_SOURCES})
add_library(cvsd_qor::cvsd_qor ALIAS cvsd_qor)
cvsd_qor_settings(cvsd_qor)
cvsd_qor_warnings(cvsd_qor)

# -Bsymbolic binds the library's references to its own functions and tables inside it, whatever names the host
# program defines. The soname has no suffix; programs linked against the library look for a file of that name.
set(export_list ${PROJECT_SOURCE_DIR}/cmake/exports.map)
target_compile_options(cvsd_qor PRIVATE -fno-semantic-interposition)
target_link_options(cvsd_qor PRIVATE
  -Wl,--version-script=${export_list} -Wl,-Bsymbolic -Wl,-soname,libcvsd_qor
  -Wl,-z,relro,-z,now -Wl,-z,noexecstack)
set_target_properties(cvsd_qor PROPERTIES NO_SONAME ON LINK_DEPENDS ${export_list})
if(NOT CVSD_QOR_SANITIZE AND NOT CVSD_QOR_COVERAGE)
  # Linked as C and without start files, which would bring the only writable data: the shared object has nothing to
  # construct or to finish and needs libc's memory functions alone.
  set_target_properties(cvsd_qor PROPERTIES LINKER_LANGUAGE C)
  target_link_options(cvsd_qor PRIVATE -nostartfiles -Wl,-z,defs)
endif()
if(ANDROID)
  target_link_options(cvsd_qor PRIVATE -Wl,-z,max-page-size=16384)
endif()
add_custom_command(TARGET cvsd_qor POST_BUILD
  COMMAND ${CMAKE_COMMAND} -E create_symlink $<TARGET_FILE_NAME:cvsd_qor> $<TARGET_FILE_DIR:cvsd_qor>/libcvsd_qor)

if(CVSD_QOR_STATIC)
  add_library(cvsd_qor_static STATIC ${CVSD_QOR_SOURCES})
  add_library(cvsd_qor::cvsd_qor_static ALIAS cvsd_qor_static)
  cvsd_qor_settings(cvsd_qor_static)
  set_target_properties(cvsd_qor_static PROPERTIES OUTPUT_NAME cvsd_qor)
endif()
