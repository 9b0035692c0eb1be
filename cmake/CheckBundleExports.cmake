# Fails where a bundle's library defines a dynamic symbol other than its entry, or lacks that.
execute_process(COMMAND ${NM} -D --defined-only --format=posix ${LIBRARY} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
if(NOT symbols MATCHES "^CorvaneCreateService T [^\n]*\n$")
  message(FATAL_ERROR "${LIBRARY} exports other than its entry:\n${symbols}")
endif()
