# Adds the source tree to a parent project with add_subdirectory, the way
# FetchContent does, and checks what the parent gets: the libraries under
# their package names, linkable in either order, C++20 passed on, and none of
# this project's tests, demo, benchmarks, warnings or sanitizers.
#   -DSOURCE_DIR -DWORK_DIR -DGENERATOR -DCXX

include(${CMAKE_CURRENT_LIST_DIR}/ZMPackageTestSteps.cmake)

file(REMOVE_RECURSE ${WORK_DIR})
step("configuring the parent project" ${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR}/subproject -B ${WORK_DIR}
     -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX} -DZM_SOURCE_DIR=${SOURCE_DIR})
step("building the parent project" ${CMAKE_COMMAND} --build ${WORK_DIR} --parallel 2)
foreach(app IN ITEMS emulator_first module_first)
  step("running ${app}" ${WORK_DIR}/${app})
  expect_output(${app} "joined lobby")
endforeach()
