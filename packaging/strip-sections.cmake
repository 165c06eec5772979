# Run by cpack once it has installed the files to package (CPACK_PRE_BUILD_SCRIPTS):
# removes from the stripped programs the sections they still carry and never use, the
# compilers' .comment and the .note section, as Debian's dh_strip does.
file(GLOB programs "${CPACK_TEMPORARY_DIRECTORY}${CPACK_PACKAGING_INSTALL_PREFIX}/bin/*")
if(NOT programs)
  message(FATAL_ERROR "strip-sections: no program under ${CPACK_TEMPORARY_DIRECTORY}")
endif()
foreach(program ${programs})
  execute_process(
    COMMAND ${CPACK_TK_STRIP} --remove-section=.comment --remove-section=.note ${program}
    RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "strip-sections: ${CPACK_TK_STRIP} failed on ${program}")
  endif()
endforeach()
