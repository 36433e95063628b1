# Compiler settings that every target of the project shares.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
                    -Wcast-qual -Wconversion -Wsign-conversion -Wformat=2)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # GCC 12 sees overflows and restrict violations in inlined std::string code that are not there.
  add_compile_options(-Wno-restrict -Wno-stringop-overflow -Wno-stringop-overread -Wno-array-bounds)
endif()
if(CLOUDBACKUP_WERROR)
  add_compile_options(-Werror)
endif()

if(CLOUDBACKUP_SANITIZE)
  add_compile_options(-fsanitize=${CLOUDBACKUP_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${CLOUDBACKUP_SANITIZE})
  if(CLOUDBACKUP_SANITIZE MATCHES "undefined")
    # This check opens a pipe to look at memory and, in a test that takes all descriptors away, sees what is not there.
    add_compile_options(-fno-sanitize=vptr)
  endif()
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Instrumented, GCC 12 no longer sees that an empty std::optional is never read.
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
endif()

if(CMAKE_UNITY_BUILD)
  # Several sources in one compilation: most of a compiler's time goes into the headers that they share. What these two
  # warnings see between sources is not there when each is compiled by itself, as in every other build.
  add_compile_options(-Wno-subobject-linkage -Wno-shadow)
endif()

if(CLOUDBACKUP_COVERAGE)
  add_compile_options(--coverage)
  add_link_options(--coverage)
endif()
