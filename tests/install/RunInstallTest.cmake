# Installs the build tree into WORK_DIR/prefix, configures and builds the host
# project against it, and runs the host (under xvfb-run when there is no
# DISPLAY). Fails on the first step that fails.
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

function(run_step name)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${name} failed (${result}):\n${out}\n${err}")
  endif()
  message(STATUS "${name}: ok")
  set(step_output "${out}" PARENT_SCOPE)
endfunction()

run_step("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix)

if(NOT EXISTS ${WORK_DIR}/prefix/include/viewer/CXViewer)
  message(FATAL_ERROR "installed headers lack include/viewer/CXViewer")
endif()

run_step("configure host" ${CMAKE_COMMAND} -S ${HOST_SOURCE_DIR} -B ${WORK_DIR}/host-build -G ${GENERATOR}
         -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix -DCMAKE_BUILD_TYPE=Release)
run_step("build host" ${CMAKE_COMMAND} --build ${WORK_DIR}/host-build)

set(host ${WORK_DIR}/host-build/tinyhost)
if(DEFINED ENV{DISPLAY} AND NOT "$ENV{DISPLAY}" STREQUAL "")
  run_step("run host" ${host})
else()
  run_step("run host" xvfb-run -a -s "-screen 0 1024x768x24" ${host})
endif()
if(NOT step_output MATCHES "tinyhost: frame drawn")
  message(FATAL_ERROR "host did not report its frame:\n${step_output}")
endif()
