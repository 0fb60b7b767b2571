# cmake -P script: install, configure and build the consumer, run it, and run the
# installed programs.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed: ${ARGN}\n${out}\n${err}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

# The consumer is the README's example: the first cpp block after the example marker.
file(COPY ${SOURCE_DIR}/ DESTINATION ${WORK_DIR}/consumer)
file(READ ${README} readme)
string(FIND "${readme}" "<!-- example: host program -->" marker)
if(marker EQUAL -1)
  message(FATAL_ERROR "README.md has no example marker")
endif()
string(SUBSTRING "${readme}" ${marker} -1 readme)
string(REGEX MATCH "```cpp\n(.*)" rest "${readme}")
string(FIND "${CMAKE_MATCH_1}" "```" code_end)
string(SUBSTRING "${CMAKE_MATCH_1}" 0 ${code_end} example)
file(WRITE ${WORK_DIR}/consumer/main.cpp "${example}")
set(flags "")
if(SANITIZE STREQUAL "address")
  set(flags "-fsanitize=address,undefined")
endif()
run(${CMAKE_COMMAND} -S ${WORK_DIR}/consumer -B ${WORK_DIR}/build -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_BUILD_TYPE=${BUILD_TYPE} "-DCMAKE_CXX_FLAGS=${flags}" "-DCMAKE_EXE_LINKER_FLAGS=${flags}")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${WORK_DIR}/build/consumer)

# The installed programs: --help, --version, and a real job each.
run(${prefix}/bin/wavestore_demo --help)
run(${prefix}/bin/wavestore_demo --version)
run(${prefix}/bin/wavestore_cache_info --help)
run(${prefix}/bin/wavestore_demo --quiet --size 1M --pool 16 --output ${WORK_DIR}/demo
    --export ${WORK_DIR}/demo/capture.h5)
foreach(picture whole.png zoom-1pct.png zoom-0.01pct.png fill-linear.png capture.h5 report.txt)
  if(NOT EXISTS ${WORK_DIR}/demo/${picture})
    message(FATAL_ERROR "the installed demo left no ${picture}")
  endif()
endforeach()
run(${prefix}/bin/wavestore_cache_info --json ${WORK_DIR}/demo/capture.h5)

# The capture saved with a project, opened and exported by the installed programs.
run(${prefix}/bin/wavestore_demo --quiet --size 1M --pool 16 --output ${WORK_DIR}/saved-run
    --save ${WORK_DIR}/project)
run(${prefix}/bin/wavestore_demo --quiet --pool 16 --output ${WORK_DIR}/loaded-run --load ${WORK_DIR}/project)
run(${prefix}/bin/wavestore_export --help)
run(${prefix}/bin/wavestore_export --quiet ${WORK_DIR}/project ${WORK_DIR}/project.h5)
if(NOT EXISTS ${WORK_DIR}/project.h5)
  message(FATAL_ERROR "the installed exporter wrote no file")
endif()
