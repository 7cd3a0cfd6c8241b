# Every object that is built for one level of the processor exports exactly its own table. Any
# other global, weak or unique symbol could be picked by the linker for code that runs elsewhere.
# cmake -DNM=nm -DTARGET=avx2 -DOBJECTS=a.o,b.o -P simdExports.cmake
string(REPLACE "," ";" objects "${OBJECTS}")
list(LENGTH objects count)
if(count EQUAL 0)
  message(FATAL_ERROR "no objects of ${TARGET} to look at")
endif()
foreach(object IN LISTS objects)
  execute_process(COMMAND ${NM} --defined-only --extern-only --demangle ${object}
    OUTPUT_VARIABLE listing RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${NM} failed on ${object}")
  endif()
  if(NOT listing MATCHES "^[0-9a-f]+ [BDR] orvanite::${TARGET}::[A-Za-z]+\n$")
    message(FATAL_ERROR "${object} must export one table of orvanite::${TARGET}, not:\n${listing}")
  endif()
endforeach()
