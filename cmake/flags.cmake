# What every target of the project is compiled with.

# Source paths in assertion reports and allocation records are relative to the checkout: they must not
# tell where a build ran, and a report must read the same from every build.
add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  add_compile_options(-fno-file-reproducible) # else they get the separator of the target's system
endif()

if(SNDX_SANITIZE)
  add_compile_options(-fsanitize=${SNDX_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${SNDX_SANITIZE})
  if(SNDX_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
    # vptr: product classes have no run-time type information to compare with.
    # alignment: the heap tracker gives blocks an alignment of 4 bytes or less, and whoever calls the module's
    # objects sees them there; a check prints texts at odd addresses. The processor does not mind.
    add_compile_options(-fno-sanitize=vptr,alignment)
  endif()
endif()

# Warnings of our own code; third-party sources (GoogleTest) do not use this target.
add_library(sndx_warnings INTERFACE)
target_compile_options(sndx_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
# GCC 12 sees overlapping copies inside its own std::string when it optimises an assignment from a literal.
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  target_compile_options(sndx_warnings INTERFACE -Wno-restrict)
else()
  # Clang counts a change of signedness to what -Wconversion means, GCC does not in C++.
  # The layer's LARGE_INTEGER is made as the system's is, of types without names.
  target_compile_options(sndx_warnings INTERFACE -Wno-sign-conversion -Wno-nested-anon-types)
endif()
if(WIN32 AND NOT CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  # The system's headers declare interfaces that do not throw and entry points that are not exported, GCC's
  # std::stable_sort uses what the library has deprecated: Clang complains of each in the source that uses it.
  target_compile_options(sndx_warnings INTERFACE
    -Wno-microsoft-exception-spec -Wno-dll-attribute-on-redeclaration -Wno-deprecated-declarations)
endif()

# The Windows interfaces: the system's own, or our layer of them.
add_library(sndx_platform INTERFACE)
if(WIN32)
  target_compile_definitions(sndx_platform INTERFACE UNICODE _UNICODE _WIN32_WINNT=0x0601 WINVER=0x0601)
  target_link_libraries(sndx_platform INTERFACE ole32 shell32 user32 advapi32 uuid)
else()
  target_link_libraries(sndx_platform INTERFACE sndxposix)
endif()

# Rules for product code: no exceptions, no run-time types, no guarded local statics (they would pull in
# the compiler's runtime), no sized deallocation (the tracking operators know two release forms only). They
# are PRIVATE to a room: the tools and tests that link one are compiled without them.
add_library(sndx_product_flags INTERFACE)
target_compile_options(sndx_product_flags INTERFACE
  -fno-exceptions -fno-rtti -fno-threadsafe-statics -fno-sized-deallocation
  -ffunction-sections -fdata-sections)
if(WIN32 AND CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # For a PDB; without the compiler's command line and the folder that it ran in.
  target_compile_options(sndx_product_flags INTERFACE
    -g -gcodeview -gno-codeview-command-line -fdebug-compilation-dir=.)
elseif(WIN32)
  target_compile_options(sndx_product_flags INTERFACE -g)
elseif(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  # A unique symbol would keep the module from being unloaded.
  target_compile_options(sndx_product_flags INTERFACE -fno-gnu-unique)
endif()
target_include_directories(sndx_product_flags INTERFACE ${CMAKE_SOURCE_DIR})
target_link_libraries(sndx_product_flags INTERFACE sndx_warnings sndx_platform)
