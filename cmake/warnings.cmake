# project_warnings: the warnings that all of our own code is compiled with, carried by one target.
add_library(project_warnings INTERFACE)
target_compile_options(project_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
  -Wcast-align -Wformat=2 -Wdouble-promotion -Wnon-virtual-dtor
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  # GCC notes thousands of times that it passed parameters otherwise before version 7; all of this is compiled by one.
  target_compile_options(project_warnings INTERFACE -Wno-psabi)
endif()
if(CUEWRIGHT_WARNINGS_AS_ERRORS)
  target_compile_options(project_warnings INTERFACE -Werror)
endif()
target_compile_definitions(project_warnings INTERFACE QT_NO_KEYWORDS QT_NO_CAST_FROM_ASCII)
