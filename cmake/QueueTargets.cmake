# Functions that create the project's targets, so that a folder's CMakeLists.txt lists only its
# files and dependencies.

# The hardening flags of Debian's packages (dpkg-buildflags), with immediate binding and
# position-independent executables.
include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
check_cxx_compiler_flag(-fcf-protection QUEUE_HAS_CF_PROTECTION)
check_cxx_compiler_flag(-fstack-clash-protection QUEUE_HAS_STACK_CLASH)

# Compiler settings for all targets: C++20, warnings, and no implicit conversion from a bare literal
# to QString, so that a Russian text without u""_s does not compile.
add_library(queue_settings INTERFACE)
target_compile_features(queue_settings INTERFACE cxx_std_20)
target_include_directories(queue_settings INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_definitions(queue_settings INTERFACE
    QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_FOREACH QT_NO_KEYWORDS
    QUEUE_VERSION="${PROJECT_VERSION}")
target_compile_options(queue_settings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow=local -Wcast-align -Wformat=2
    -fstack-protector-strong
    # Only compilers for x86 have this option; tills use x86.
    $<$<BOOL:${QUEUE_HAS_CF_PROTECTION}>:-fcf-protection>
    $<$<BOOL:${QUEUE_HAS_STACK_CLASH}>:-fstack-clash-protection>
    # Requires optimization. A test's own code is not optimized.
    $<$<AND:$<CONFIG:Release,RelWithDebInfo>,$<NOT:$<BOOL:$<TARGET_PROPERTY:QUEUE_IS_TEST>>>>:-U_FORTIFY_SOURCE>
    $<$<AND:$<CONFIG:Release,RelWithDebInfo>,$<NOT:$<BOOL:$<TARGET_PROPERTY:QUEUE_IS_TEST>>>>:-D_FORTIFY_SOURCE=2>
    # gcc 14 rejects the precompiled header unless programs are compiled like libraries.
    -fPIC
    # clang does not know some of these.
    $<$<CXX_COMPILER_ID:Clang>:-Wno-unknown-warning-option>
    # Optimized builds warn about inline functions in Qt's headers.
    $<$<BOOL:${QUEUE_WARNINGS_AS_ERRORS}>:-Wnull-dereference>
    $<$<BOOL:${QUEUE_WARNINGS_AS_ERRORS}>:-Werror>)
target_link_options(queue_settings INTERFACE -Wl,-z,relro -Wl,-z,now)
if(QUEUE_SANITIZE)
    target_compile_options(queue_settings INTERFACE
        -fsanitize=${QUEUE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g1
        -Wno-null-dereference -Wno-maybe-uninitialized)
    target_link_options(queue_settings INTERFACE -fsanitize=${QUEUE_SANITIZE})
endif()

set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_program(CCACHE ccache)
if(CCACHE)
    # ccache identifies precompiled headers by content; without this setting every use is a miss.
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env
        CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime ${CCACHE})
    add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-fpch-preprocess>)
endif()

# Headers that nearly every file includes, precompiled once for the libraries and once for the
# tests. The file is written only if it is missing: a newer one would cause a full rebuild.
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/pch/pch.cpp CONTENT "" @ONLY)
add_library(queue_pch STATIC ${PROJECT_BINARY_DIR}/pch/pch.cpp)
target_link_libraries(queue_pch PRIVATE queue_settings Qt6::Core)
target_precompile_headers(queue_pch PRIVATE
    <QByteArray> <QCoreApplication> <QDateTime> <QDir> <QFile> <QHash> <QJsonArray> <QJsonDocument>
    <QJsonObject> <QList> <QMap> <QMutex> <QObject> <QRegularExpression> <QSet> <QString> <QStringList>
    <QTimer> <QUrl> <QVariant>
    <atomic> <functional> <memory> <optional> <stdexcept> <string> <vector>)

# Macros of Qt's test library, the first two with the folder of each target. They are undefined,
# because no test needs them and a precompiled header requires the same macros in all its users.
set(QUEUE_TEST_OPTIONS -UQT_TESTCASE_BUILDDIR -UQT_TESTCASE_SOURCEDIR -UQT_NETWORK_LIB)
# Code that runs on tills is compiled for speed. A test's own code is compiled without optimization,
# in two thirds of the time.
list(APPEND QUEUE_TEST_OPTIONS $<$<CONFIG:RelWithDebInfo>:-O0> $<$<CONFIG:RelWithDebInfo>:-g0>)

if(QUEUE_BUILD_TESTS)
    # A hundred programs are linked; programs for tills use the compiler's own linker.
    find_program(MOLD mold)
    mark_as_advanced(MOLD)
    add_library(queue_test_pch STATIC ${PROJECT_BINARY_DIR}/pch/pch.cpp)
    target_link_libraries(queue_test_pch PRIVATE queue_settings Qt6::Core Qt6::Test)
    target_compile_options(queue_test_pch PRIVATE ${QUEUE_TEST_OPTIONS})
    set_target_properties(queue_test_pch PROPERTIES QUEUE_IS_TEST ON)
    target_precompile_headers(queue_test_pch PRIVATE
        <QtCore/QtCore> <QtTest/QtTest> <atomic> <functional> <memory> <optional> <string> <vector>)
endif()

# queue_add_library(NAME [MOC] [TOGETHER] SOURCES a.cpp ... [LINKS lib ...])
# Makes one static library per folder. LINKS names the folders below it and external libraries. MOC
# is for a folder whose headers have Q_OBJECT or Q_GADGET; without it they do not link. TOGETHER is
# for a folder in whose unnamed namespaces all names differ: preset `release` compiles up to eight
# of its files as one, in half the time. Exclude a file with SKIP_UNITY_BUILD_INCLUSION.
function(queue_add_library name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "MOC;TOGETHER" "" "SOURCES;LINKS")
    add_library(${name} STATIC ${arg_SOURCES})
    target_link_libraries(${name} PUBLIC queue_settings Qt6::Core ${arg_LINKS})
    if(arg_MOC)
        set_target_properties(${name} PROPERTIES AUTOMOC ON)
    endif()
    if(arg_TOGETHER AND QUEUE_FEWER_STEPS)
        set_target_properties(${name} PROPERTIES UNITY_BUILD ON)
    endif()
    target_precompile_headers(${name} REUSE_FROM queue_pch)
endfunction()

# queue_add_test(tst_x.cpp [more.cpp ...] [LINKS lib ...] [LABELS label ...] [TIMEOUT seconds])
# Makes one QtTest program named after its first file. ctest runs it in a folder of its own.
function(queue_add_test source)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "TIMEOUT" "LINKS;LABELS")
    get_filename_component(name ${source} NAME_WE)
    add_executable(${name} ${source} ${arg_UNPARSED_ARGUMENTS})
    target_link_libraries(${name} PRIVATE ${arg_LINKS} Qt6::Test)
    target_compile_options(${name} PRIVATE ${QUEUE_TEST_OPTIONS})
    set_target_properties(${name} PROPERTIES QUEUE_IS_TEST ON)
    if(MOLD)
        target_link_options(${name} PRIVATE -fuse-ld=mold)
    endif()
    # AUTOMOC would compile an additional empty file for each test.
    qt_generate_moc(${source} ${CMAKE_CURRENT_BINARY_DIR}/${name}.moc TARGET ${name})
    set_source_files_properties(${source} PROPERTIES
        OBJECT_DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/${name}.moc)
    target_include_directories(${name} PRIVATE ${CMAKE_CURRENT_BINARY_DIR})
    target_precompile_headers(${name} REUSE_FROM queue_test_pch)
    add_test(NAME ${name} COMMAND ${name})
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 120)
    endif()
    # Counting takes longer than what is counted.
    if(CMAKE_CXX_FLAGS_DEBUG MATCHES "--coverage")
        math(EXPR arg_TIMEOUT "${arg_TIMEOUT} * 5")
    endif()
    set_tests_properties(${name} PROPERTIES
        TIMEOUT ${arg_TIMEOUT}
        LABELS "${arg_LABELS}"
        ENVIRONMENT "QTEST_DISABLE_STACK_DUMP=1;QT_FORCE_STDERR_LOGGING=1;LC_ALL=C.UTF-8")
endfunction()

# queue_add_fault_test(tst_x.cpp ...), arguments as for queue_add_test. A test that injects faults.
# Its short form ends within a minute. QUEUE_FAULTS=long selects the long form, which may take hours
# (tests/faults/form.h).
function(queue_add_fault_test source)
    queue_add_test(${source} ${ARGN})
    get_filename_component(name ${source} NAME_WE)
    get_test_property(${name} ENVIRONMENT environment)
    set_tests_properties(${name} PROPERTIES
        TIMEOUT 10800
        LABELS faults
        ENVIRONMENT "${environment};QTEST_FUNCTION_TIMEOUT=9000000")
endfunction()
