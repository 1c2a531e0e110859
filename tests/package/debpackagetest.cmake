# Builds the Debian packages of the build tree, unpacks them into a temporary
# root (as dpkg would install them, without touching the system) and checks
# them as users meet them: lintian finds no error, the outside project in
# consumer/ builds against the root through CMake and through pkg-config and
# runs, each tool answers --help from there, and man renders each page.
#
# cmake -DBUILD_DIR=... -DCONSUMER_DIR=... -DWORK_DIR=... -DGENERATOR=...
#       -DCXX=... -DLIBDIR=... -DVERSION=... -P debpackagetest.cmake

foreach(var BUILD_DIR CONSUMER_DIR WORK_DIR GENERATOR CXX LIBDIR VERSION)
    if(NOT DEFINED ${var})
        message(FATAL_ERROR "debpackagetest.cmake needs -D${var}=...")
    endif()
endforeach()

function(run_step what)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${what} failed (${result}):\n${output}")
    endif()
    set(step_output "${output}" PARENT_SCOPE)
endfunction()

set(debs ${WORK_DIR}/debs)
set(root ${WORK_DIR}/root)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${debs} ${root})

run_step("cpack" cpack -G DEB -B ${debs} --config ${BUILD_DIR}/CPackConfig.cmake)
set(expected libkvbase1 libzentappstartup1 libzentappstartup-dev zentappstartup-tools zentheartbeat
    zentappstartup-cfgclient)
foreach(package IN LISTS expected)
    file(GLOB deb ${debs}/${package}_${VERSION}_*.deb)
    if(NOT deb)
        file(GLOB made ${debs}/*.deb)
        message(FATAL_ERROR "no package ${package} ${VERSION}; made: ${made}")
    endif()
    list(APPEND packages ${deb})
    run_step("unpack ${package}" dpkg-deb -x ${deb} ${root})
endforeach()

find_program(LINTIAN lintian)
if(LINTIAN)
    execute_process(COMMAND ${LINTIAN} --tag-display-limit 0 ${packages}
        OUTPUT_VARIABLE lintian_output ERROR_VARIABLE lintian_errors)
    if(lintian_output MATCHES "(^|\n)E: ")
        message(FATAL_ERROR "lintian reports errors:\n${lintian_output}")
    endif()
    message(STATUS "lintian:\n${lintian_output}")
else()
    message(STATUS "lintian is not installed: the packages were not checked by it")
endif()

set(usr ${root}/usr)
set(libs ${usr}/${LIBDIR})
set(ENV{LD_LIBRARY_PATH} ${libs})

# Through CMake.
run_step("configure consumer" ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/cmake-build -G ${GENERATOR}
    -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_PREFIX_PATH=${usr} -DCMAKE_BUILD_TYPE=RelWithDebInfo)
run_step("build consumer" ${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-build)
run_step("run consumer (CMake)" ${WORK_DIR}/cmake-build/zentconsumer)
set(consumer_line "consumer: zent.exe DemoApp:a.dll Xml:Cfg.xml key DemoApp\n")
if(NOT step_output STREQUAL consumer_line)
    message(FATAL_ERROR "consumer built through CMake printed:\n${step_output}")
endif()

# Through pkg-config (Qt asks for position-independent code).
set(ENV{PKG_CONFIG_PATH} ${libs}/pkgconfig)
run_step("pkg-config" pkg-config --cflags --libs ZentAppStartUp)
string(STRIP "${step_output}" pc_flags)
separate_arguments(pc_flags UNIX_COMMAND "${pc_flags}")
run_step("pkg-config version" pkg-config --modversion ZentAppStartUp KVBase)
if(NOT step_output STREQUAL "${VERSION}\n${VERSION}\n")
    message(FATAL_ERROR "pkg-config reports the versions:\n${step_output}")
endif()
run_step("build consumer (pkg-config)" ${CXX} -std=c++17 -fPIC ${CONSUMER_DIR}/main.cpp ${pc_flags}
    -o ${WORK_DIR}/zentconsumer-pc)
run_step("run consumer (pkg-config)" ${WORK_DIR}/zentconsumer-pc)
if(NOT step_output STREQUAL consumer_line)
    message(FATAL_ERROR "consumer built through pkg-config printed:\n${step_output}")
endif()

# The tools from the root, and their man pages.
foreach(tool zentreg cfgcopy cfgdelete)
    run_step("${tool} --help" ${usr}/bin/${tool} --help)
    if(NOT step_output MATCHES "${tool}")
        message(FATAL_ERROR "${tool} --help printed:\n${step_output}")
    endif()
    run_step("${tool} --version" ${usr}/bin/${tool} --version)
    if(NOT step_output MATCHES "${VERSION}")
        message(FATAL_ERROR "${tool} --version printed:\n${step_output}")
    endif()
    set(ENV{MANWIDTH} 80)
    run_step("man ${tool}" man -l ${usr}/share/man/man1/${tool}.1.gz)
    if(NOT step_output MATCHES "SYNOPSIS" OR NOT step_output MATCHES "EXIT STATUS")
        message(FATAL_ERROR "man -l ${tool}.1.gz rendered:\n${step_output}")
    endif()
endforeach()
message(STATUS "packages: ${packages}")
