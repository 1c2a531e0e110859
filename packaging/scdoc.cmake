# cmake -DSCDOC=... -DSOURCE=page.1.scd -DOUTPUT=page.1 -P scdoc.cmake
# Turns one scdoc page into roff and a reproducible gzip beside it.
get_filename_component(dir ${OUTPUT} DIRECTORY)
file(MAKE_DIRECTORY ${dir})
execute_process(COMMAND ${SCDOC} INPUT_FILE ${SOURCE} OUTPUT_FILE ${OUTPUT} RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "scdoc failed on ${SOURCE}")
endif()
execute_process(COMMAND gzip -9nkf ${OUTPUT} RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "gzip failed on ${OUTPUT}")
endif()
