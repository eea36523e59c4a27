# Compiles threadSafety_planted.cpp with clang and the thread-safety analysis:
# every planted fault must be refused by line, and nothing else.
#   cmake -DCLANG=... -DINCLUDE=... -DSOURCE=... -P threadSafety_check.cmake
execute_process(COMMAND ${CLANG} -std=c++17 -fsyntax-only -Wthread-safety -Werror -I${INCLUDE} ${SOURCE}
                RESULT_VARIABLE status ERROR_VARIABLE diagnostics OUTPUT_QUIET)
if(status EQUAL 0)
  message(FATAL_ERROR "clang accepted the planted lock faults: the thread-safety analysis is not in force")
endif()
foreach(expected
    "15:[0-9]+: error: writing variable 'value_' requires holding mutex 'mutex_'"
    "17:[0-9]+: error: reading the value pointed to by 'pointer_' requires holding mutex 'mutex_'"
    "19:[0-9]+: error: calling function 'drawLocked' requires holding mutex 'screenLock_'"
    "24:[0-9]+: error: cannot call function 'draw' while mutex 'screenLock_' is held"
    "29:[0-9]+: error: mutex 'mutex_' is not held on every path"
    "5 errors generated")
  if(NOT diagnostics MATCHES "${expected}")
    message(FATAL_ERROR "missing diagnostic: ${expected}\n${diagnostics}")
  endif()
endforeach()
