# SPDX-License-Identifier: MIT
#
# Installs the build in BUILD_DIR, builds the host against it and prints a page with it, and one with the
# installed program.
set(work ${BUILD_DIR}/host_example)
set(prefix ${work}/prefix)
file(REMOVE_RECURSE ${work})

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output
                  ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${ARGN}: ${result}\n${output}")
  endif()
  set(output ${output} PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
run(${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR} -B ${work}/build -G ${GENERATOR}
    -D CMAKE_CXX_COMPILER=${CXX_COMPILER} -D CMAKE_PREFIX_PATH=${prefix})
run(${CMAKE_COMMAND} --build ${work}/build)
run(${work}/build/minimal_host ${prefix}/lib/corvane/corvane.so ${prefix}/share/corvane/default.cvt)
message("${output}")

# 3600 input rows are 7200 printed rows; a page without ink would be no page.
if(NOT output MATCHES "7200 rows of 7 planes" OR NOT output MATCHES " [1-9][0-9]+ drops"
   OR NOT output MATCHES "swaths at: 333 666")
  message(FATAL_ERROR "the host printed something else")
endif()

run(${prefix}/bin/corvane print ${CMAKE_CURRENT_LIST_DIR}/../sample.jpg --paper 30x30mm -o ${work}/)
