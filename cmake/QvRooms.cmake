# The headers that nearly every source of a room includes, read once: they take half of the time that
# a source takes to compile. A build without precompiled headers (preset clang) shows that each
# source includes what it uses.
file(WRITE "${CMAKE_BINARY_DIR}/rooms/Common.cpp" "")
function(qv_precompile_headers target)
  add_library(${target} STATIC "${CMAKE_BINARY_DIR}/rooms/Common.cpp")
  target_precompile_headers(${target} PRIVATE
    <algorithm> <array> <chrono> <cstdint> <functional> <map> <memory> <mutex> <optional> <span> <string>
    <string_view> <utility> <variant> <vector> <fmt/core.h> <tl/expected.hpp>)
  target_link_libraries(${target} PRIVATE fmt::fmt)
  target_compile_options(${target} PRIVATE ${QV_ROOM_OPTIONS} ${ARGN})
endfunction()
qv_precompile_headers(qv_room_common)

# Rooms that wait for files, people and other programs, where nothing is measured that -O2 makes
# faster: the compiler takes a fifth less time for them.
set(QV_WAITING_ROOMS)
if(CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo" AND NOT QV_SANITIZE)
  set(QV_WAITING_ROOMS
    client platform/accessibility platform/applescript platform/applescript/language
    platform/applescript/world platform/applescript/world/applications
    platform/applescript/world/context platform/applescript/world/objects
    platform/examiner platform/foundation/configuration platform/foundation/log platform/imager
    platform/journal platform/security/examination platform/security/guarded platform/security/install
    platform/security/requirement platform/security/signature platform/security/transforms
    platform/workspace/launch platform/workspace/trash
    script/review script/review/lint script/review/places tools)
  qv_precompile_headers(qv_waiting_room_common -O1)
endif()

# A room is one folder of src/ built as a static library. It sees its own headers and those of the
# rooms it names, and nothing else: its only include directory is a folder of the build tree that
# holds a single symbolic link to it. PRIVATE unless a header of the room needs the other one.
#
# Sources of a room are compiled all at once, so a name of an anonymous namespace means one thing in a
# room; those under ALONE, which take all names of an enumeration in, for example, are compiled by
# themselves.
#
#   qv_room(script SOURCES a.cpp b.cpp PUBLIC platform/foundation/values PRIVATE rules LIBRARIES ...)
function(qv_room path)
  cmake_parse_arguments(ROOM "" "" "SOURCES;ALONE;PUBLIC;PRIVATE;LIBRARIES" ${ARGN})
  string(REPLACE "/" "_" name "qv_${path}")
  set(view "${CMAKE_BINARY_DIR}/rooms/${name}")
  get_filename_component(parent "${view}/${path}" DIRECTORY)
  file(MAKE_DIRECTORY "${parent}")
  file(CREATE_LINK "${CMAKE_SOURCE_DIR}/src/${path}" "${view}/${path}" SYMBOLIC)
  list(TRANSFORM ROOM_SOURCES PREPEND "${CMAKE_SOURCE_DIR}/src/${path}/")
  add_library(${name} STATIC ${ROOM_SOURCES})
  target_include_directories(${name} PUBLIC "${view}")
  target_compile_options(${name} PRIVATE ${QV_ROOM_OPTIONS})
  if(path IN_LIST QV_WAITING_ROOMS)
    target_compile_options(${name} PRIVATE -O1)
    target_precompile_headers(${name} REUSE_FROM qv_waiting_room_common)
  else()
    target_precompile_headers(${name} REUSE_FROM qv_room_common)
  endif()
  # Tests of a sanitized build spend most of their time here.
  if(QV_SANITIZE MATCHES "address" AND path MATCHES "^platform/foundation/(values|plist|archive)$")
    target_compile_options(${name} PRIVATE -O1)
    set_target_properties(${name} PROPERTIES DISABLE_PRECOMPILE_HEADERS ON)
  endif()
  # No fuzz target has anything to do with these.
  if(QV_SANITIZE MATCHES "fuzzer" AND
     path MATCHES "^(client|codesign|service|tools|platform/(applescript(/world.*)?|examiner|imager))$")
    target_compile_options(${name} PRIVATE
      -fno-sanitize-coverage=inline-8bit-counters,indirect-calls,pc-table,stack-depth,trace-cmp)
  endif()
  target_link_options(${name} PUBLIC ${QV_ROOM_LINK_OPTIONS})
  set_target_properties(${name} PROPERTIES UNITY_BUILD ${QV_UNITY} UNITY_BUILD_BATCH_SIZE 0)
  list(TRANSFORM ROOM_ALONE PREPEND "${CMAKE_SOURCE_DIR}/src/${path}/")
  set_source_files_properties(${ROOM_ALONE} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
  foreach(kind PUBLIC PRIVATE)
    foreach(room IN LISTS ROOM_${kind})
      string(REPLACE "/" "_" dependency "qv_${room}")
      target_link_libraries(${name} ${kind} ${dependency})
    endforeach()
  endforeach()
  target_link_libraries(${name} PRIVATE fmt::fmt ${ROOM_LIBRARIES})
  set_property(GLOBAL APPEND PROPERTY QV_ROOMS "${path}")
endfunction()

# Links rooms into a program, test, benchmark or fuzz target. A folder stands for all rooms below it.
function(qv_use_rooms target)
  get_property(rooms GLOBAL PROPERTY QV_ROOMS)
  foreach(folder IN LISTS ARGN)
    set(below ${rooms})
    list(FILTER below INCLUDE REGEX "^${folder}(/|$)")
    if(NOT below)
      message(FATAL_ERROR "${target} uses ${folder}, and there is no such room")
    endif()
    list(TRANSFORM below REPLACE "/" "_")
    list(TRANSFORM below PREPEND "qv_")
    target_link_libraries(${target} PRIVATE ${below})
  endforeach()
endfunction()

# Replaces the sources of a target of the tests, in a variable, by the objects that the build of
# QV_TEST_OBJECTS made of them; without such a build, notes the objects for the others.
function(qv_share_objects target variable)
  if(QV_TEST_OBJECTS)
    file(STRINGS "${QV_TEST_OBJECTS}/test_objects/${target}" ${variable})
  else()
    file(GENERATE OUTPUT "${CMAKE_BINARY_DIR}/test_objects/${target}"
         CONTENT "$<TARGET_OBJECTS:${target}>")
    set_property(GLOBAL APPEND PROPERTY QV_OBJECTS_OF_TESTS "$<TARGET_OBJECTS:${target}>")
  endif()
  set(${variable} ${${variable}} PARENT_SCOPE)
endfunction()

# A library that several test programs share: qv_test_library(name a.cpp b.cpp).
function(qv_test_library name)
  set(sources ${ARGN})
  qv_share_objects(${name} sources)
  add_library(${name} STATIC ${sources})
  target_link_libraries(${name} PRIVATE GTest::gmock)
  if(NOT QV_TEST_OBJECTS)
    target_precompile_headers(${name} REUSE_FROM qv_test_common)
  endif()
  set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX)
endfunction()

# One test program of a room: qv_test(name SOURCES ... ROOMS ... [LIBRARIES ...] [LABELS root]).
# Label "root": needs root and says so when it skips. Label "live": starts the real service. Label
# "threads": several threads at work, so that the thread sanitizer looks at it; the target "threads"
# builds these alone.
function(qv_test name)
  cmake_parse_arguments(TEST "" "" "SOURCES;ROOMS;LIBRARIES;LABELS;DEPENDS" ${ARGN})
  qv_share_objects(${name} TEST_SOURCES)
  add_executable(${name} ${TEST_SOURCES})
  qv_use_rooms(${name} ${TEST_ROOMS})
  target_include_directories(${name} PRIVATE "${CMAKE_SOURCE_DIR}/tests")
  if(NOT QV_TEST_OBJECTS)
    target_precompile_headers(${name} REUSE_FROM qv_test_common)
  endif()
  set_target_properties(${name} PROPERTIES UNITY_BUILD ${QV_UNITY} UNITY_BUILD_BATCH_SIZE 0
                                           LINKER_LANGUAGE CXX)
  target_link_libraries(${name} PRIVATE qv_test_support GTest::gmock GTest::gtest_main
                                        ${TEST_LIBRARIES})
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES LABELS "${TEST_LABELS}" TIMEOUT 300)
  if("threads" IN_LIST TEST_LABELS)
    add_dependencies(threads ${name})
  endif()
  if(TEST_DEPENDS)
    add_dependencies(${name} ${TEST_DEPENDS})
  endif()
endfunction()

# One fuzz target, its seeds in corpus/<name> beside its source: qv_fuzz(name SOURCES ... ROOMS ...).
# In a developer's build it becomes a test too, which runs every stored input once; the fuzz stage of
# ./test does that by itself.
function(qv_fuzz name)
  cmake_parse_arguments(FUZZ "" "" "SOURCES;ROOMS;LIBRARIES" ${ARGN})
  if(QV_FUZZ)
    add_executable(fuzz_${name} ${FUZZ_SOURCES})
    qv_use_rooms(fuzz_${name} ${FUZZ_ROOMS})
    target_link_libraries(fuzz_${name} PRIVATE fmt::fmt ${FUZZ_LIBRARIES})
    # Fuzz targets are compiled as rooms are, with their precompiled headers.
    target_compile_options(fuzz_${name} PRIVATE -fPIC ${QV_ROOM_OPTIONS})
    set_target_properties(fuzz_${name} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
    target_precompile_headers(fuzz_${name} REUSE_FROM qv_room_common)
    target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
    add_dependencies(fuzzers fuzz_${name})
  endif()
  if(QV_REPLAY)
    qv_test(replay_${name}
      SOURCES ${FUZZ_SOURCES} "${CMAKE_SOURCE_DIR}/tests/support/ReplayCorpusTest.cpp"
      ROOMS ${FUZZ_ROOMS} LIBRARIES ${FUZZ_LIBRARIES})
    target_compile_definitions(replay_${name} PRIVATE
      QV_CORPUS="${CMAKE_CURRENT_SOURCE_DIR}/corpus/${name}")
  endif()
endfunction()
