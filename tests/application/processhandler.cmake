# The process handler: a helper that reports its arguments, one that shows a
# window, and the window placement test on a private Xvfb display.
add_executable(processhandler_argvhelper processhandler/argvhelper.cpp)
add_executable(processhandler_windowhelper processhandler/windowhelper.cpp)
target_link_libraries(processhandler_windowhelper PRIVATE Qt5::Widgets)

zent_add_qtest(processhandler SOURCES tst_processhandler.cpp LABELS threads)
target_compile_definitions(tst_processhandler PRIVATE
    ZENT_ARGV_HELPER="$<TARGET_FILE:processhandler_argvhelper>")
add_dependencies(tst_processhandler processhandler_argvhelper)

zent_add_qtest(windowscommandline SOURCES tst_windowscommandline.cpp)
zent_add_qtest(processoutputhandler SOURCES tst_processoutputhandler.cpp)

add_executable(tst_processhandlerwindows tst_processhandlerwindows.cpp)
target_link_libraries(tst_processhandlerwindows PRIVATE ZentAppStartUp KVBase Qt5::Test)
target_include_directories(tst_processhandlerwindows PRIVATE ${PROJECT_SOURCE_DIR}/tests)
target_compile_definitions(tst_processhandlerwindows PRIVATE
    ZENT_WINDOW_HELPER="$<TARGET_FILE:processhandler_windowhelper>")
add_dependencies(tst_processhandlerwindows processhandler_windowhelper)
add_test(NAME processhandlerwindows
    COMMAND ${PROJECT_SOURCE_DIR}/tests/scripts/run-under-xvfb.sh --screen 1024x768x24
            $<TARGET_FILE:tst_processhandlerwindows>)
set_tests_properties(processhandlerwindows PROPERTIES
    TIMEOUT 120
    LABELS xvfb
    SKIP_RETURN_CODE 77
    # The X client libraries of the helper leak on their own.
    ENVIRONMENT "ASAN_OPTIONS=detect_leaks=0")
