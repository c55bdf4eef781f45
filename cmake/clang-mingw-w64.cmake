# Cross compiler for what is shipped: Clang and lld, because they make debug information that Windows tools read, with
# GCC's headers and libraries. No control-flow guard: the start-up code of the distribution (MinGW-w64 10) has neither the
# load configuration nor the dispatch pointer that guarded calls need.
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.cmake)
foreach(language C CXX)
  set(CMAKE_${language}_COMPILER_TARGET ${toolchain})
endforeach()
set(CMAKE_C_COMPILER clang-19)
set(CMAKE_CXX_COMPILER clang++-19)
# Clang does not look into the folder of Debian's posix variant by itself.
file(GLOB gcc_folder /usr/lib/gcc/${toolchain}/*-posix)
# Thread-local variables of GCC's library are the emulated ones.
set(CMAKE_CXX_FLAGS_INIT "-femulated-tls -isystem ${gcc_folder}/include/c++ -isystem ${gcc_folder}/include/c++/${toolchain}")
# libstdc++ needs libpthread; lld does not mind the order.
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-fuse-ld=lld-19 -B${gcc_folder} -L${gcc_folder} -lpthread -Wno-unused-command-line-argument")
endforeach()
