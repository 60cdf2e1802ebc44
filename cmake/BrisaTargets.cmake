# Helpers that keep every subsystem's CMakeLists short: one static library per subsystem, one
# test executable per subsystem, and tests that run natively on the host or under Wine.

set(BRISA_SOURCE_ROOT ${PROJECT_SOURCE_DIR}/src)

if(WIN32)
    # One self-contained exe: no libstdc++, libgcc or winpthread DLL beside it.
    string(APPEND CMAKE_EXE_LINKER_FLAGS " -static -static-libgcc -static-libstdc++")
    add_compile_definitions(UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0A00)
    # The host's rcc compresses with zstd, which the static kit's Qt cannot read.
    set(CMAKE_AUTORCC_OPTIONS --no-zstd)
else()
    add_compile_options(-Wall -Wextra)
endif()

if(BRISA_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
endif()

if(BRISA_DEV_ENDPOINT)
    add_compile_definitions(BRISA_DEV_ENDPOINT=1)
endif()

# brisa_library(<name> SOURCES ... [WIN32_SOURCES ...] [POSIX_SOURCES ...] [LIBS ...])
function(brisa_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;WIN32_SOURCES;POSIX_SOURCES;LIBS" ${ARGN})
    set(sources ${ARG_SOURCES})
    if(WIN32)
        list(APPEND sources ${ARG_WIN32_SOURCES})
    else()
        list(APPEND sources ${ARG_POSIX_SOURCES})
    endif()
    add_library(${name} STATIC ${sources})
    target_include_directories(${name} PUBLIC ${BRISA_SOURCE_ROOT})
    target_link_libraries(${name} PUBLIC ${ARG_LIBS})
endfunction()

if(WIN32)
    set(BRISA_WINE "/usr/lib/wine/wine64" CACHE FILEPATH "Wine loader that runs the Windows tests")
    set(BRISA_WINEPREFIX "${PROJECT_BINARY_DIR}/wineprefix")
    set(BRISA_WINE_RUN "${PROJECT_SOURCE_DIR}/cmake/wine-run.sh")
    set(BRISA_WINE_ENV "BRISA_WINEPREFIX=${BRISA_WINEPREFIX};BRISA_WINE=${BRISA_WINE};BRISA_DESKTOP_SHELL=${PROJECT_BINARY_DIR}/tests/support/desktop_shell.exe")
    if(BUILD_TESTING)
        # Every Windows test needs the prefix and the X server; ctest starts them once and
        # stops them after the last test, also when only some tests are selected.
        add_test(NAME wine-environment-up COMMAND ${BRISA_WINE_RUN} --up)
        add_test(NAME wine-environment-down COMMAND ${BRISA_WINE_RUN} --down)
        set_tests_properties(wine-environment-up PROPERTIES FIXTURES_SETUP wine LABELS "wine"
            ENVIRONMENT "${BRISA_WINE_ENV}" TIMEOUT 600)
        set_tests_properties(wine-environment-down PROPERTIES FIXTURES_CLEANUP wine LABELS "wine"
            ENVIRONMENT "${BRISA_WINE_ENV}")
    endif()
endif()

# brisa_test(<name> LABEL <subsystem> SOURCES ... [LIBS ...] [HOST_ONLY] [WINDOWS_ONLY]
#            [TIMEOUT s] [ENVIRONMENT ...] [ARGS ...])
# A Qt Test executable. On the host it runs directly (offscreen platform); in the Windows build
# it runs under Wine through cmake/wine-run.sh, which returns the test's own exit code.
function(brisa_test name)
    cmake_parse_arguments(ARG "HOST_ONLY;WINDOWS_ONLY" "LABEL;TIMEOUT"
        "SOURCES;LIBS;ENVIRONMENT;ARGS" ${ARGN})
    if(ARG_HOST_ONLY AND WIN32)
        return()
    endif()
    if(ARG_WINDOWS_ONLY AND NOT WIN32)
        return()
    endif()
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 600)
    endif()
    # Several people edit this tree at once; a test whose sources are still being written is left
    # out with a warning instead of breaking everybody's configure. In CI it is an error.
    foreach(source ${ARG_SOURCES})
        if(NOT IS_ABSOLUTE ${source})
            set(source ${CMAKE_CURRENT_SOURCE_DIR}/${source})
        endif()
        if(NOT EXISTS ${source})
            if(DEFINED ENV{CI})
                message(FATAL_ERROR "test ${name}: missing source ${source}")
            endif()
            message(WARNING "test ${name} left out: missing source ${source}")
            return()
        endif()
    endforeach()
    add_executable(${name} ${ARG_SOURCES})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests ${BRISA_SOURCE_ROOT})
    target_link_libraries(${name} PRIVATE Qt6::Test ${ARG_LIBS})
    target_compile_definitions(${name} PRIVATE
        BRISA_TEST_SOURCE_DIR="${PROJECT_SOURCE_DIR}/tests"
        BRISA_TEST_BINARY_DIR="${PROJECT_BINARY_DIR}/tests")
    if(WIN32)
        add_test(NAME ${name} COMMAND ${BRISA_WINE_RUN} $<TARGET_FILE:${name}> ${ARG_ARGS})
        set_tests_properties(${name} PROPERTIES
            LABELS "${ARG_LABEL};wine" FIXTURES_REQUIRED wine TIMEOUT ${ARG_TIMEOUT}
            ENVIRONMENT "${BRISA_WINE_ENV};${ARG_ENVIRONMENT}")
    else()
        add_test(NAME ${name} COMMAND ${name} ${ARG_ARGS})
        set_tests_properties(${name} PROPERTIES
            LABELS "${ARG_LABEL};host" TIMEOUT ${ARG_TIMEOUT}
            ENVIRONMENT "QT_QPA_PLATFORM=offscreen;${ARG_ENVIRONMENT}")
    endif()
endfunction()
