# talvo_add_test(NAME SOURCES ... [LIBS ...] [QT] [SERIAL] [TIMEOUT s] [LABELS ...])
#
# One GoogleTest executable, registered with ctest case by case.  QT gives the
# executable a main() that creates a QApplication on the offscreen platform, so
# widget tests never need a display.  Tests find the build and source trees
# through TALVO_BUILD_DIR and TALVO_SOURCE_DIR, compiled in.  SERIAL runs each
# case with no other test beside it, for cases that time a real player.
function(talvo_add_test name)
  cmake_parse_arguments(T "QT;SERIAL" "TIMEOUT;FIXTURES" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  target_link_libraries(${name} PRIVATE ${T_LIBS} GTest::gtest GTest::gmock)
  target_compile_definitions(${name} PRIVATE TALVO_BUILD_DIR="${CMAKE_BINARY_DIR}"
                                             TALVO_SOURCE_DIR="${CMAKE_SOURCE_DIR}")
  if(T_QT)
    target_link_libraries(${name} PRIVATE talvo_test_qtmain Qt6::Widgets)
  else()
    target_link_libraries(${name} PRIVATE GTest::gtest_main)
  endif()
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 120)
  endif()
  set(labels)
  if(T_LABELS)
    set(labels LABELS "${T_LABELS}")
  endif()
  # Files a setup test writes before these run (FIXTURES_SETUP of that test).
  set(fixtures)
  if(T_FIXTURES)
    set(fixtures FIXTURES_REQUIRED ${T_FIXTURES})
  endif()
  set(serial)
  if(T_SERIAL)
    set(serial RUN_SERIAL TRUE)
  endif()
  # One variable only: the discovery script splits a list of several.
  gtest_discover_tests(${name}
    DISCOVERY_TIMEOUT 60
    PROPERTIES
      TIMEOUT ${T_TIMEOUT}
      ${labels}
      ${fixtures}
      ${serial}
      ENVIRONMENT "QT_QPA_PLATFORM=offscreen")
endfunction()
