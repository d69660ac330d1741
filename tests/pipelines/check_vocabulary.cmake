# Runs `TQVHOST [OPTIONS] describe PLUGIN` and checks the whole vocabulary: no row the host could
# not register, the count of every kind, and (when EXPECTED is given) every line byte for byte.
# On a difference the actual output is kept in ACTUAL.
set(expected_counts class=1 property=34 method=72 event=3 constant=54 extension=1 extension-method=1
    global=2)

string(REPLACE ";" " " options "${OPTIONS}")
separate_arguments(options UNIX_COMMAND "${options}")
execute_process(COMMAND ${TQVHOST} ${options} describe ${PLUGIN}
                OUTPUT_VARIABLE actual ERROR_VARIABLE errors RESULT_VARIABLE status)
file(WRITE ${ACTUAL} "${actual}")
if(NOT status EQUAL 0 OR NOT errors STREQUAL "")
  message(FATAL_ERROR "tqvhost describe failed (${status}) or could not register rows:\n${errors}")
endif()

string(REGEX MATCHALL "(^|\n)[a-z-]+\t" kinds "${actual}")
foreach(expected IN LISTS expected_counts)
  string(REPLACE "=" ";" pair "${expected}")
  list(GET pair 0 kind)
  list(GET pair 1 count)
  set(found 0)
  foreach(line_kind IN LISTS kinds)
    string(STRIP "${line_kind}" line_kind)
    if(line_kind STREQUAL kind)
      math(EXPR found "${found} + 1")
    endif()
  endforeach()
  if(NOT found EQUAL count)
    message(FATAL_ERROR "${found} ${kind} lines, expected ${count}; output in ${ACTUAL}")
  endif()
endforeach()

if(EXPECTED)
  file(READ ${EXPECTED} expected)
  if(NOT actual STREQUAL expected)
    execute_process(COMMAND diff -u ${EXPECTED} ${ACTUAL} OUTPUT_VARIABLE diff)
    message(FATAL_ERROR "the vocabulary differs from ${EXPECTED}:\n${diff}")
  endif()
endif()
