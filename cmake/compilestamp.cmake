# cmake -DSOURCE=CHECKOUT -P compilestamp.cmake -- COMPILER ARGUMENT…
# Compiles the build stamp. What was built of a commit bears the commit's time, so that everyone who builds it gets the
# same bytes; with changes that are not committed, or without git, it is the moment of the link. SOURCE_DATE_EPOCH, which
# the compiler takes for the time, goes before both.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  execute_process(COMMAND git status --porcelain --untracked-files=no
    WORKING_DIRECTORY ${SOURCE} RESULT_VARIABLE result OUTPUT_VARIABLE changes ERROR_QUIET)
  if(result EQUAL 0 AND changes STREQUAL "")
    execute_process(COMMAND git log -1 --format=%ct
      WORKING_DIRECTORY ${SOURCE} OUTPUT_VARIABLE time OUTPUT_STRIP_TRAILING_WHITESPACE)
    set(ENV{SOURCE_DATE_EPOCH} ${time})
  endif()
endif()
set(command)
math(EXPR last "${CMAKE_ARGC} - 1")
foreach(i RANGE ${last})
  if(DEFINED found)
    list(APPEND command "${CMAKE_ARGV${i}}")
  elseif(CMAKE_ARGV${i} STREQUAL "--")
    set(found TRUE)
  endif()
endforeach()
execute_process(COMMAND ${command} COMMAND_ERROR_IS_FATAL ANY)
