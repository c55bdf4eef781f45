# sndx_add_build_stamp(TARGET)
# Gives a linked file the moment of its link, which the trace's header shows: diag/buildstamp.cpp is compiled right
# before every link and only then. The compiler takes SOURCE_DATE_EPOCH for the time when the environment has it.
function(sndx_add_build_stamp target)
  set(object ${CMAKE_CURRENT_BINARY_DIR}/${target}_buildstamp.o)
  set(compiler_target $<$<BOOL:${CMAKE_CXX_COMPILER_TARGET}>:--target=${CMAKE_CXX_COMPILER_TARGET}>)
  add_custom_command(TARGET ${target} PRE_LINK
    COMMAND ${CMAKE_CXX_COMPILER} ${compiler_target} -I${CMAKE_SOURCE_DIR} ${CMAKE_CXX_COMPILE_OPTIONS_PIC}
      -c ${CMAKE_SOURCE_DIR}/diag/buildstamp.cpp -o ${object}
    VERBATIM COMMAND_EXPAND_LISTS)
  target_link_options(${target} PRIVATE ${object})
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS
    ${CMAKE_SOURCE_DIR}/diag/buildstamp.cpp ${CMAKE_SOURCE_DIR}/diag/buildstamp.h)
endfunction()
