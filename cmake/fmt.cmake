# {fmt}, compiled once here: Debian has its library in one word size alone, and compiling it anew
# in every file that formats takes most of a build's time.
find_path(KZDDL_FMT_INCLUDE fmt/format.h REQUIRED)
add_library(kzfmt STATIC cmake/fmt.cpp)
target_include_directories(kzfmt SYSTEM PUBLIC ${KZDDL_FMT_INCLUDE})
