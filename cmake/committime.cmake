# cmake -DSOURCE=CHECKOUT -P committime.cmake -- COMMAND ARGUMENT…
# Runs a command that writes the time into what it makes. What is made of a commit bears the commit's time, so that
# everyone who builds it gets the same bytes: SOURCE_DATE_EPOCH says so to the command. With changes that are not
# committed, or without git, it is the moment; where the environment has SOURCE_DATE_EPOCH already, that one holds.
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
