# The start-up tests: ZentApplication, ZentQApplication and their helper
# program and plug-ins. They live in a folder of their own, so that the
# plug-in names the start-up hard-wires ("FolderPane.dll") find only the
# libraries built here, whatever other tests put beside the usual programs.
set(ZENT_STARTUP_TEST_DIR ${CMAKE_CURRENT_BINARY_DIR}/zentapp-bin)

function(zent_startup_test_plugin name)
    add_library(zentapp_${name} MODULE zentapplication/testplugin.cpp)
    target_link_libraries(zentapp_${name} PRIVATE ZentAppStartUp)
    target_compile_definitions(zentapp_${name} PRIVATE ZENT_TEST_PLUGIN_NAME="${name}")
    set_target_properties(zentapp_${name} PROPERTIES
        OUTPUT_NAME ${name}
        LIBRARY_OUTPUT_DIRECTORY ${ZENT_STARTUP_TEST_DIR})
endfunction()
zent_startup_test_plugin(StartupPlugin)
zent_startup_test_plugin(FolderPane)

add_executable(zentapphelper zentapplication/helper.cpp)
target_link_libraries(zentapphelper PRIVATE ZentAppStartUp KVBase)
set_target_properties(zentapphelper PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${ZENT_STARTUP_TEST_DIR})

# The tests start Qt applications, and their helpers more of them; in
# sanitizer builds they always use the project's leak suppressions (what Qt's
# own libraries keep at exit), however ctest is called.
function(zent_startup_test name)
    zent_add_qtest(${name} ${ARGN})
    set_target_properties(tst_${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${ZENT_STARTUP_TEST_DIR})
    add_dependencies(tst_${name} zentapp_StartupPlugin zentapp_FolderPane zentapphelper)
    set_property(TEST ${name} APPEND PROPERTY ENVIRONMENT
        "LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/lsan.supp")
endfunction()

zent_startup_test(zentapplication SOURCES tst_zentapplication.cpp LABELS threads)
zent_startup_test(zentqapplication SOURCES tst_zentqapplication.cpp LABELS threads)
zent_startup_test(zentapplicationinstance SOURCES tst_zentapplicationinstance.cpp)

# The demo application end to end (headless), when the demo is built.
if(TARGET zentdemo)
    zent_startup_test(zentapplicationdemo SOURCES tst_zentapplicationdemo.cpp LIBRARIES Qt5::Xml)
    target_compile_definitions(tst_zentapplicationdemo PRIVATE
        ZENT_DEMO_PROGRAM="$<TARGET_FILE:zentdemo>"
        ZENT_DEMO_DATA_DIR="${PROJECT_BINARY_DIR}/examples/demo"
        ZENT_VERSION="${PROJECT_VERSION}")
    add_dependencies(tst_zentapplicationdemo zentdemo)

    # On a real X server with two screens: where the splash appears, and
    # screenshots of zentdemo, which land in this build folder.
    add_executable(tst_zentapplicationscreens tst_zentapplicationscreens.cpp)
    target_link_libraries(tst_zentapplicationscreens PRIVATE ZentAppStartUp KVBase Qt5::Test)
    target_include_directories(tst_zentapplicationscreens PRIVATE ${PROJECT_SOURCE_DIR}/tests)
    target_compile_definitions(tst_zentapplicationscreens PRIVATE
        ZENT_DEMO_PROGRAM="$<TARGET_FILE:zentdemo>"
        ZENT_DEMO_DATA_DIR="${PROJECT_BINARY_DIR}/examples/demo")
    set_target_properties(tst_zentapplicationscreens PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${ZENT_STARTUP_TEST_DIR})
    add_dependencies(tst_zentapplicationscreens zentdemo)
    add_test(NAME zentapplicationscreens
        # Two screens, 800x600 (the primary) and 640x480.
        COMMAND ${PROJECT_SOURCE_DIR}/tests/scripts/run-under-xvfb.sh --screen 800x600x24 --screen 640x480x24
                $<TARGET_FILE:tst_zentapplicationscreens>)
    set_tests_properties(zentapplicationscreens PROPERTIES
        TIMEOUT 120
        # X client libraries leak on their own; the start-up's memory is
        # checked by the offscreen tests, and a sanitizer build still looks
        # for every other memory error here.
        LABELS "xvfb;no-asan"
        SKIP_RETURN_CODE 77
        ENVIRONMENT "ZENT_SCREENSHOT_DIR=${CMAKE_CURRENT_BINARY_DIR};ASAN_OPTIONS=detect_leaks=0")
endif()
