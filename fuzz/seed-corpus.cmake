file(MAKE_DIRECTORY ${CORPUS})
file(COPY ${FIXTURE} DESTINATION ${CORPUS})
foreach(seed 1 2 3)
  execute_process(COMMAND ${GENLIB} --tracks 3 --seed ${seed} ${CORPUS}/generated-${seed}.xml
    RESULT_VARIABLE result OUTPUT_QUIET)
  if(result)
    message(FATAL_ERROR "corvana-genlib failed: ${result}")
  endif()
endforeach()
