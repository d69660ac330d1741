# Runs `TQVHOST [OPTIONS] describe PLUGIN` and fails unless every regular expression in EXPECT
# ('|'-separated) matches a line of its output.
string(REPLACE ";" " " options "${OPTIONS}")
separate_arguments(options UNIX_COMMAND "${options}")
execute_process(COMMAND ${TQVHOST} ${options} describe ${PLUGIN}
                OUTPUT_VARIABLE out ERROR_VARIABLE errors RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "tqvhost describe failed (${status}):\n${errors}")
endif()
string(REPLACE "\t" "<TAB>" shown "${out}")
string(REPLACE "|" ";" expect "${EXPECT}")
foreach(pattern IN LISTS expect)
  string(REPLACE "<TAB>" "\t" regex "${pattern}")
  if(NOT out MATCHES "(^|\n)${regex}(\n|$)")
    message(FATAL_ERROR "no line matches '${pattern}' in:\n${shown}")
  endif()
endforeach()
