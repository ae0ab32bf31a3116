# CUEWRIGHT_FUZZ: builds the libFuzzer programs (see fuzz/), for which everything is compiled with the counters
# that guide the fuzzer.
option(CUEWRIGHT_FUZZ "Build the fuzz targets as libFuzzer programs, which scripts/fuzz runs" OFF)
option(CUEWRIGHT_FUZZ_REPLAY "Build only as much as fuzz_replay needs" OFF)
if(CUEWRIGHT_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "CUEWRIGHT_FUZZ needs clang: use the preset fuzz, or CMAKE_CXX_COMPILER=clang++")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
