# Translation files for the translation centre's test: most land in a folder
# of their own, from which each test copies what it needs into the search
# places; one lands beside the test programs, the second search place.
find_package(Qt5 5.15 REQUIRED COMPONENTS LinguistTools)
set(ZENT_TEST_QM_DIR ${CMAKE_CURRENT_BINARY_DIR}/translations)
set(zent_test_ts_files
    ${CMAKE_CURRENT_SOURCE_DIR}/translations/KVBase_de.ts
    ${CMAKE_CURRENT_SOURCE_DIR}/translations/TrCenterModule_de.ts
    ${CMAKE_CURRENT_SOURCE_DIR}/translations/TrCenterModule_fr.ts)
set(zent_test_ts_beside_exe ${CMAKE_CURRENT_SOURCE_DIR}/translations/TrCenterBesideExe_de.ts)
set_source_files_properties(${zent_test_ts_files} PROPERTIES OUTPUT_LOCATION ${ZENT_TEST_QM_DIR})
set_source_files_properties(${zent_test_ts_beside_exe} PROPERTIES OUTPUT_LOCATION ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
qt5_add_translation(zent_test_qm_files ${zent_test_ts_files} ${zent_test_ts_beside_exe})
add_custom_target(translationcenter_qm DEPENDS ${zent_test_qm_files})
zent_add_qtest(translationcenter SOURCES tst_translationcenter.cpp)
add_dependencies(tst_translationcenter translationcenter_qm)
target_compile_definitions(tst_translationcenter PRIVATE ZENT_TEST_QM_DIR="${ZENT_TEST_QM_DIR}")
