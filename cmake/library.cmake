# The library: one set of objects, linked into the shared object and, where asked for, put into an archive.

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
  add_compile_options(--coverage -fprofile-update=atomic) # a test runs on several threads
  add_link_options(--coverage)
endif()

set(public_include
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

add_library(cvsd_qor_objects OBJECT ${CVSD_QOR_SOURCES})
target_compile_features(cvsd_qor_objects PRIVATE cxx_std_20)
target_include_directories(cvsd_qor_objects PRIVATE ${PROJECT_SOURCE_DIR} ${public_include})
set_target_properties(cvsd_qor_objects PROPERTIES
  CXX_EXTENSIONS OFF
  CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON
  POSITION_INDEPENDENT_CODE ON)
# Nothing of the C++ run-time is used, and of libc only what fills, copies and moves memory: also where a distribution
# or the NDK asks for stack guards and checking variants of these functions by default.
target_compile_options(cvsd_qor_objects PRIVATE
  -fno-exceptions -fno-rtti -fno-unwind-tables -fno-asynchronous-unwind-tables -fno-threadsafe-statics
  -fno-semantic-interposition -fno-stack-protector -U_FORTIFY_SOURCE ${CVSD_QOR_LIBRARY_FLAGS})
cvsd_qor_warnings(cvsd_qor_objects)

add_library(cvsd_qor SHARED $<TARGET_OBJECTS:cvsd_qor_objects>)
add_library(cvsd_qor::cvsd_qor ALIAS cvsd_qor)
target_include_directories(cvsd_qor INTERFACE ${public_include})

# -Bsymbolic binds the library's references to its own functions and tables inside it, whatever names the host
# program defines. The soname has no suffix; programs linked against the library look for a file of that name.
set(export_list ${PROJECT_SOURCE_DIR}/cmake/exports.map)
target_link_options(cvsd_qor PRIVATE
  -Wl,--version-script=${export_list} -Wl,-Bsymbolic -Wl,-soname,libcvsd_qor
  -Wl,-z,relro,-z,now -Wl,-z,noexecstack -Wl,--as-needed)
set_target_properties(cvsd_qor PROPERTIES NO_SONAME ON LINK_DEPENDS ${export_list} LINKER_LANGUAGE CXX)
if(NOT CVSD_QOR_SANITIZE AND NOT CVSD_QOR_COVERAGE)
  # Linked as C and without start files, which would bring the only writable data: the shared object has nothing to
  # construct or to finish.
  set_target_properties(cvsd_qor PROPERTIES LINKER_LANGUAGE C)
  target_link_options(cvsd_qor PRIVATE -nostartfiles -Wl,-z,defs)
endif()
if(ANDROID)
  target_link_options(cvsd_qor PRIVATE -Wl,-z,max-page-size=16384)
endif()
add_custom_command(TARGET cvsd_qor POST_BUILD
  COMMAND ${CMAKE_COMMAND} -E create_symlink $<TARGET_FILE_NAME:cvsd_qor> $<TARGET_FILE_DIR:cvsd_qor>/libcvsd_qor)

if(CVSD_QOR_STATIC)
  add_library(cvsd_qor_static STATIC $<TARGET_OBJECTS:cvsd_qor_objects>)
  add_library(cvsd_qor::cvsd_qor_static ALIAS cvsd_qor_static)
  target_include_directories(cvsd_qor_static INTERFACE ${public_include})
  set_target_properties(cvsd_qor_static PROPERTIES OUTPUT_NAME cvsd_qor LINKER_LANGUAGE C)
endif()
