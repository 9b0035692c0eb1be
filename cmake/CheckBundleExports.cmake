# Fails where a bundle's library defines dynamic symbols other than the expected ones, or lacks one of them.
execute_process(COMMAND ${NM} -D --defined-only --format=just-symbols ${LIBRARY} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(STRIP "${symbols}" symbols)
string(REPLACE "\n" ";" symbols "${symbols}")
list(SORT symbols)
list(SORT EXPORTS)
if(NOT symbols STREQUAL EXPORTS)
  message(FATAL_ERROR "${LIBRARY} exports ${symbols} and not just ${EXPORTS}")
endif()
