# tonemill_library(NAME DEPS...) builds the static library of the calling folder from
# every source file in it, so adding a class never means editing a CMake file.
function(tonemill_library name)
  file(GLOB sources CONFIGURE_DEPENDS
       ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/*.h
       ${CMAKE_CURRENT_SOURCE_DIR}/*.qrc)
  list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")
  if(sources)
    add_library(${name} STATIC ${sources})
    target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR})
    target_link_libraries(${name} PUBLIC ${ARGN})
  else()
    # A folder whose classes have not landed yet still takes its place in the graph.
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE ${CMAKE_SOURCE_DIR})
    target_link_libraries(${name} INTERFACE ${ARGN})
  endif()
endfunction()

# tonemill_test(NAME LABEL DEPS...) builds one GoogleTest executable from the sources of the
# calling tests folder and registers each test with CTest under LABEL.
function(tonemill_test name label)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
  add_executable(${name} ${sources})
  target_link_libraries(${name} PRIVATE ${ARGN} GTest::gtest GTest::gtest_main Threads::Threads)
  target_compile_definitions(${name} PRIVATE
    TONEMILL_SOURCE_DIR="${CMAKE_SOURCE_DIR}"
    TONEMILL_BINARY_DIR="${CMAKE_BINARY_DIR}")
  gtest_discover_tests(${name}
    PROPERTIES LABELS ${label} ENVIRONMENT "QT_QPA_PLATFORM=offscreen"
    DISCOVERY_TIMEOUT 60)
endfunction()
