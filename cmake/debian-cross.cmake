# Toolchain file for the machine CVSD_QOR_TRIPLET (aarch64-linux-gnu, x86_64-w64-mingw32, wasm32-wasi): Debian's cross
# compiler for it, and qemu, wine or node to run its programs.
if(NOT CVSD_QOR_TRIPLET)
  message(FATAL_ERROR "Name the machine, for example -D CVSD_QOR_TRIPLET=riscv64-linux-gnu")
endif()
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES CVSD_QOR_TRIPLET)
set(CMAKE_C_COMPILER ${CVSD_QOR_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${CVSD_QOR_TRIPLET}-g++)
set(CMAKE_FIND_ROOT_PATH /usr/${CVSD_QOR_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${CVSD_QOR_TRIPLET}/pkgconfig)

string(REGEX MATCH "^[^-]+" CMAKE_SYSTEM_PROCESSOR ${CVSD_QOR_TRIPLET})
if(CVSD_QOR_TRIPLET MATCHES mingw)
  set(CMAKE_SYSTEM_NAME Windows)
  set(CMAKE_EXE_LINKER_FLAGS_INIT -static) # for the compiler's own libraries
  set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/programs) # Windows finds DLLs beside the program
  set(CMAKE_CROSSCOMPILING_EMULATOR env WINEPREFIX=${CMAKE_BINARY_DIR}/wine WINEDEBUG=-all /usr/lib/wine/wine64)
elseif(CVSD_QOR_TRIPLET MATCHES wasm)
  set(CMAKE_SYSTEM_NAME Generic)
  set(CMAKE_C_COMPILER clang-14)
  set(CMAKE_CXX_COMPILER clang++-14)
  set(CMAKE_C_COMPILER_TARGET ${CVSD_QOR_TRIPLET})
  set(CMAKE_CXX_COMPILER_TARGET ${CVSD_QOR_TRIPLET})
  set(CMAKE_CXX_FLAGS_INIT "-fno-exceptions -DGTEST_HAS_STREAM_REDIRECTION=0") # WASI has neither
  set(CMAKE_CROSSCOMPILING_EMULATOR node --experimental-wasi-unstable-preview1 --no-warnings
    ${CMAKE_CURRENT_LIST_DIR}/wasi.mjs)
elseif(CVSD_QOR_TRIPLET MATCHES "^i686")
  # An x86-64 machine runs these programs itself. Under qemu 7.2 their threads hang.
  set(CMAKE_SYSTEM_NAME Linux)
  set(CMAKE_CROSSCOMPILING_EMULATOR
    /usr/${CVSD_QOR_TRIPLET}/lib/ld-linux.so.2 --library-path /usr/${CVSD_QOR_TRIPLET}/lib)
else()
  set(CMAKE_SYSTEM_NAME Linux)
  string(REGEX REPLACE "^powerpc" ppc qemu ${CMAKE_SYSTEM_PROCESSOR})
  set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${qemu}-static -L /usr/${CVSD_QOR_TRIPLET})
endif()
