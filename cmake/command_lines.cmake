# command_line_sources(FILE...): compiles these sources of the calling folder without optimization in builds for
# development. A command line is read once, but what CLI11's templates expand to takes the optimizer half a minute a
# file under a sanitizer. Release builds optimize them as everything else.
function(command_line_sources)
  if(CMAKE_BUILD_TYPE STREQUAL "Debug")
    set_property(SOURCE ${ARGN} APPEND PROPERTY COMPILE_OPTIONS -O0)
  endif()
endfunction()
