# sndx_add_build_stamp(TARGET)
# Gives a linked file its build stamp, which the trace's header shows: diag/buildstamp.cpp is compiled right before every
# link and only then. Must be called in the folder of the target.
function(sndx_add_build_stamp target)
  set(object ${target}_buildstamp.o) # without a folder: a PDB holds the linker's command line
  set(compiler_target $<$<BOOL:${CMAKE_CXX_COMPILER_TARGET}>:--target=${CMAKE_CXX_COMPILER_TARGET}>)
  add_custom_command(TARGET ${target} PRE_LINK
    COMMAND ${CMAKE_COMMAND} -DSOURCE=${CMAKE_SOURCE_DIR} -P ${CMAKE_SOURCE_DIR}/cmake/committime.cmake --
      ${CMAKE_CXX_COMPILER} ${compiler_target} -I${CMAKE_SOURCE_DIR} ${CMAKE_CXX_COMPILE_OPTIONS_PIC}
      -c ${CMAKE_SOURCE_DIR}/diag/buildstamp.cpp -o ${object}
    WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR} VERBATIM COMMAND_EXPAND_LISTS)
  target_link_options(${target} PRIVATE ${object})
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS
    ${CMAKE_SOURCE_DIR}/diag/buildstamp.cpp ${CMAKE_SOURCE_DIR}/diag/buildstamp.h)
endfunction()
