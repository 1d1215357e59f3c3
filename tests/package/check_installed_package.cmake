# Installs the package into a scratch prefix and uses it the way an app does:
# the examples build against it through find_package and run (the app-test
# example with the test kit), every installed header compiles in an app, the version and the components behave, a
# production install without the emulator works, and the pkg-config files
# build the quick start.
#   -DSOURCE_DIR -DBUILD_DIR -DWORK_DIR -DGENERATOR -DCXX -DWERROR -DVERSION -DCTEST

include(${CMAKE_CURRENT_LIST_DIR}/ZMPackageTestSteps.cmake)

file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
step("cmake --install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

# ---- Layout -------------------------------------------------------------------
file(GLOB_RECURSE config ${prefix}/*/ZMChatRoomConfig.cmake)
if(NOT config)
  message(FATAL_ERROR "no ZMChatRoomConfig.cmake under ${prefix}")
endif()
get_filename_component(libdir ${config} DIRECTORY)
get_filename_component(libdir ${libdir}/../.. ABSOLUTE)
foreach(file IN ITEMS
        include/zmchatroom/ZMChatRoom/ZMChatRoomClient.h
        include/zmchatroom/ZMChatRoom/ZMChatRoomVersion.h
        include/zmchatroom/ZMChatRoom/Models/ZMChatRoomInfo.h
        include/zmchatroom/VemoIMLibCore/ZMKernel.h
        include/zmchatroom/Platform/ZMMainQueue.h
        include/zmchatroom-emulator/CoreEmulator/ZMCoreEmulator.h
        include/zmchatroom-testkit/ZMChatRoomTestKit/ZMChatRoomTestKit.h
        include/zmchatroom-testkit/ZMChatRoomTestKit/ZMChatRoomTestFixture.h)
  if(NOT EXISTS ${prefix}/${file})
    message(FATAL_ERROR "${file} is not installed")
  endif()
endforeach()
foreach(file IN ITEMS cmake/ZMChatRoom/ZMChatRoomConfigVersion.cmake cmake/ZMChatRoom/ZMChatRoomTargets.cmake
                      cmake/ZMChatRoom/ZMChatRoomCoreEmulatorTargets.cmake pkgconfig/zmchatroom.pc
                      pkgconfig/zmchatroom-emulator.pc pkgconfig/zmchatroom-testkit.pc)
  if(NOT EXISTS ${libdir}/${file})
    message(FATAL_ERROR "${libdir}/${file} is not installed")
  endif()
endforeach()
file(GLOB_RECURSE internal ${prefix}/*+Internal.h)
if(internal)
  message(FATAL_ERROR "private headers are installed: ${internal}")
endif()
if(EXISTS ${prefix}/include/zmchatroom/CoreEmulator)
  message(FATAL_ERROR "the emulator's headers are installed beside the module's")
endif()

set(common -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_PREFIX_PATH=${prefix}
           -DCMAKE_FIND_PACKAGE_NO_PACKAGE_REGISTRY=ON -DCMAKE_BUILD_TYPE=Debug
           "-DCMAKE_CXX_FLAGS=-Wall -Wextra -Wpedantic")
if(WERROR)
  list(APPEND common -DCMAKE_COMPILE_WARNING_AS_ERROR=ON)
endif()

# ---- The examples -------------------------------------------------------------
step("configuring the quick start" ${CMAKE_COMMAND} -S ${SOURCE_DIR}/examples/quickstart -B ${WORK_DIR}/quickstart ${common})
step("building the quick start" ${CMAKE_COMMAND} --build ${WORK_DIR}/quickstart --parallel 2)
step("running the quick start" ${WORK_DIR}/quickstart/quickstart)
expect_output("the quick start" "ZMChatRoom ${VERSION} quick start" "lobby: joined, 42 members"
              "lobby: join failed with -1 (connection lost)" "lobby: join failed with 30001" "lobby: quit" "done")

step("configuring the app-test example" ${CMAKE_COMMAND} -S ${SOURCE_DIR}/examples/app-test -B ${WORK_DIR}/app-test ${common})
step("building the app-test example" ${CMAKE_COMMAND} --build ${WORK_DIR}/app-test --parallel 2)
step("running the app-test example's tests" ${CTEST}
     --test-dir ${WORK_DIR}/app-test --output-on-failure)
expect_output("the app-test example" "100% tests passed, 0 tests failed out of 9")

# ---- Headers, version and components, as an app project sees them --------------
file(GLOB_RECURSE module_headers RELATIVE ${prefix}/include/zmchatroom ${prefix}/include/zmchatroom/*.h)
file(GLOB_RECURSE emulator_headers RELATIVE ${prefix}/include/zmchatroom-emulator
     ${prefix}/include/zmchatroom-emulator/*.h)
file(GLOB_RECURSE testkit_headers RELATIVE ${prefix}/include/zmchatroom-testkit
     ${prefix}/include/zmchatroom-testkit/*.h)
list(SORT module_headers)
list(SORT emulator_headers)
list(SORT testkit_headers)
set(text "")
foreach(header IN LISTS module_headers)
  string(APPEND text "#include <${header}>\n")
endforeach()
string(REGEX MATCH "^([0-9]+)\\.([0-9]+)\\.([0-9]+)" _ "${VERSION}")
math(EXPR number "${CMAKE_MATCH_1} * 10000 + ${CMAKE_MATCH_2} * 100 + ${CMAKE_MATCH_3}")
math(EXPR next_minor "${CMAKE_MATCH_2} + 1")
set(next_version "${CMAKE_MATCH_1}.${next_minor}")
string(APPEND text "static_assert(ZMCHATROOM_VERSION == ${number});\nint moduleHeaders() { return 0; }\n")
file(WRITE ${WORK_DIR}/headers/module_headers.cpp "${text}")
set(text "")
foreach(header IN LISTS emulator_headers)
  string(APPEND text "#include <${header}>\n")
endforeach()
string(APPEND text "int emulatorHeaders() { return 0; }\n")
file(WRITE ${WORK_DIR}/headers/emulator_headers.cpp "${text}")
set(text "")
foreach(header IN LISTS testkit_headers)
  string(APPEND text "#include <${header}>\n")
endforeach()
string(APPEND text "int testkitHeaders() { return 0; }\n")
file(WRITE ${WORK_DIR}/headers/testkit_headers.cpp "${text}")
file(WRITE ${WORK_DIR}/headers/CMakeLists.txt "
cmake_minimum_required(VERSION 3.25)
project(ZMChatRoomHeaders LANGUAGES CXX)
find_package(ZMChatRoom ${next_version} QUIET)
if(ZMChatRoom_FOUND)
  message(FATAL_ERROR \"version ${VERSION} satisfies a request for ${next_version}\")
endif()
find_package(ZMChatRoom ${VERSION} EXACT REQUIRED COMPONENTS CoreEmulator TestKit)
find_package(GTest REQUIRED)
if(NOT ZMChatRoom_VERSION VERSION_EQUAL ${VERSION})
  message(FATAL_ERROR \"found version \${ZMChatRoom_VERSION}\")
endif()
foreach(target ZMChatRoom VemoIMLibCore Platform CoreEmulator TestKit)
  if(NOT TARGET ZMChatRoom::\${target})
    message(FATAL_ERROR \"no ZMChatRoom::\${target}\")
  endif()
endforeach()
add_library(module_headers OBJECT module_headers.cpp)
target_link_libraries(module_headers PRIVATE ZMChatRoom::ZMChatRoom)
add_library(emulator_headers OBJECT emulator_headers.cpp)
target_link_libraries(emulator_headers PRIVATE ZMChatRoom::CoreEmulator)
add_library(testkit_headers OBJECT testkit_headers.cpp)
target_link_libraries(testkit_headers PRIVATE ZMChatRoom::TestKit GTest::gtest)
# The emulator's control API is out of reach of code that links only the module.
include(CheckCXXSourceCompiles)
set(CMAKE_REQUIRED_LIBRARIES ZMChatRoom::ZMChatRoom)
check_cxx_source_compiles(\"#include <CoreEmulator/ZMCoreEmulator.h>\nint main() { return 0; }\" EMULATOR_REACHABLE)
if(EMULATOR_REACHABLE)
  message(FATAL_ERROR \"the emulator's headers are reachable through ZMChatRoom::ZMChatRoom\")
endif()
# The test kit's headers only through the test kit.
set(CMAKE_REQUIRED_LIBRARIES ZMChatRoom::CoreEmulator)
check_cxx_source_compiles(\"#include <ZMChatRoomTestKit/ZMChatRoomTestKit.h>\nint main() { return 0; }\" TESTKIT_REACHABLE)
if(TESTKIT_REACHABLE)
  message(FATAL_ERROR \"the test kit's headers are reachable through ZMChatRoom::CoreEmulator\")
endif()
")
step("configuring the header check" ${CMAKE_COMMAND} -S ${WORK_DIR}/headers -B ${WORK_DIR}/headers/build ${common})
step("compiling every installed header" ${CMAKE_COMMAND} --build ${WORK_DIR}/headers/build --parallel 2)

# ---- A production install: the emulator component left out ---------------------
set(production ${WORK_DIR}/production)
foreach(component IN ITEMS ZMChatRoom_Runtime ZMChatRoom_Development)
  step("installing ${component}" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${production} --component ${component})
endforeach()
file(GLOB_RECURSE leftovers ${production}/*ZMCoreEmulator* ${production}/*CoreEmulator* ${production}/*TestKit*
     ${production}/*testkit*)
if(leftovers)
  message(FATAL_ERROR "a production install carries the emulator: ${leftovers}")
endif()
file(WRITE ${WORK_DIR}/production-check/CMakeLists.txt "
cmake_minimum_required(VERSION 3.25)
project(ZMChatRoomProduction LANGUAGES CXX)
foreach(component CoreEmulator TestKit)
  find_package(ZMChatRoom QUIET COMPONENTS \${component})
  if(ZMChatRoom_FOUND)
    message(FATAL_ERROR \"the \${component} component is found without being installed\")
  endif()
endforeach()
find_package(ZMChatRoom REQUIRED)
if(TARGET ZMChatRoom::CoreEmulator OR TARGET ZMChatRoom::TestKit OR NOT TARGET ZMChatRoom::ZMChatRoom)
  message(FATAL_ERROR \"wrong targets in a production install\")
endif()
")
step("configuring against a production install" ${CMAKE_COMMAND} -S ${WORK_DIR}/production-check
     -B ${WORK_DIR}/production-check/build -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX}
     -DCMAKE_PREFIX_PATH=${production} -DCMAKE_FIND_PACKAGE_NO_PACKAGE_REGISTRY=ON)

# ---- pkg-config -------------------------------------------------------------------
find_program(PKG_CONFIG NAMES pkg-config pkgconf)
if(NOT PKG_CONFIG)
  message(WARNING "pkg-config not found: the pkg-config files are not checked")
  return()
endif()
set(ENV{PKG_CONFIG_PATH} ${libdir}/pkgconfig)
step("pkg-config" ${PKG_CONFIG} --cflags --libs zmchatroom-emulator)
string(STRIP "${STEP_OUTPUT}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
file(MAKE_DIRECTORY ${WORK_DIR}/pkgconfig)
step("building the quick start with pkg-config" ${CXX} -std=c++20 ${SOURCE_DIR}/examples/quickstart/main.cpp
     ${flags} -Wl,-rpath,${libdir} -o ${WORK_DIR}/pkgconfig/quickstart)
step("running the quick start built with pkg-config" ${WORK_DIR}/pkgconfig/quickstart)
expect_output("the quick start built with pkg-config" "lobby: joined, 42 members" "done")
