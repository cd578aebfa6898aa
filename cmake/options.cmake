# Options of the targets: warnings, large files, sanitizers.
option(KZDDL_WERROR "Treat warnings as errors" OFF)
option(KZDDL_BENCHMARKS "Build the benchmarks" OFF)
option(KZDDL_FUZZ "Build the fuzz targets, with clang" OFF)
set(KZDDL_SANITIZE "" CACHE STRING "Sanitizers for every target, such as address,undefined")

# The library's own.
add_library(kzddl_base_options INTERFACE)
target_compile_options(kzddl_base_options INTERFACE -Wall -Wextra -Wpedantic
                       $<$<COMPILE_LANGUAGE:CXX>:-Wno-missing-field-initializers>
                       $<$<BOOL:${KZDDL_WERROR}>:-Werror>)
target_include_directories(kzddl_base_options INTERFACE ${PROJECT_SOURCE_DIR})

# Every other target's: with large files.
add_library(kzddl_options INTERFACE)
target_compile_definitions(kzddl_options INTERFACE _FILE_OFFSET_BITS=64)
target_link_libraries(kzddl_options INTERFACE kzddl_base_options)

if(KZDDL_SANITIZE)
  add_compile_options(-fsanitize=${KZDDL_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${KZDDL_SANITIZE})
endif()
if(KZDDL_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
