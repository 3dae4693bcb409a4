# How the folders of this repository may see each other.
#
# A folder's headers are included as "folder/header.h". Each folder has an
# include root of its own, a directory in the build tree that holds nothing but
# a link to that folder. A target sees exactly the folders that it names, so an
# include that crosses a border the design forbids does not compile.

add_library(qx_flags INTERFACE)
target_compile_options(qx_flags INTERFACE
  -Wall -Wextra -Wpedantic -Werror -Wshadow -Wnon-virtual-dtor -Wcast-align
  -Woverloaded-virtual -Wformat=2 -Wundef -Wimplicit-fallthrough
  $<$<COMPILE_LANGUAGE:CXX>:-Wextra-semi>)
# Assertions stay on in every build type: a null shared pointer must stop the
# process with a message, not run on.
target_compile_options(qx_flags INTERFACE -UNDEBUG)
# Symbols of the framework's templates must be ordinary weak symbols: unique
# ones would pin the plug-in library in memory for ever. clang-tidy reads the same
# command line and refuses an option that only the GNU compiler knows; nobody loads
# what is built beside it.
if(NOT CMAKE_CXX_CLANG_TIDY)
  target_compile_options(qx_flags INTERFACE
    $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<CXX_COMPILER_ID:GNU>>:-fno-gnu-unique>)
endif()

# Where several sources are compiled as one, a class with a member or a base of its source's
# own looks like one of a header.
if(CMAKE_UNITY_BUILD)
  target_compile_options(qx_flags INTERFACE -Wno-subobject-linkage)
endif()

# What makes mistakes with memory hard to use, in what is installed: FORTIFY does nothing
# without optimisation, and the sanitizers have ways of their own. tests/hostile/elf
# looks at the result.
if("${CMAKE_C_FLAGS} ${CMAKE_CXX_FLAGS}" MATCHES "-O[123s]" AND
   NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  target_compile_options(qx_flags INTERFACE
    -fstack-protector-strong -fstack-clash-protection -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|amd64")
    target_compile_options(qx_flags INTERFACE -fcf-protection=full)
  endif()
  target_link_options(qx_flags INTERFACE LINKER:-z,relro,-z,noexecstack)
  # The plug-in's symbols come from the process that loads it, which need not have those
  # that are never called: it alone is bound when it calls.
  target_link_options(qx_flags INTERFACE
    $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:LINKER:-z,now,--as-needed>)
endif()

# qx_headers(FOLDER): target FOLDER_headers, which makes "FOLDER/..." includable. In
# the names of targets a folder of a folder is written with an underscore.
function(qx_headers folder)
  string(REPLACE "/" "_" name ${folder})
  set(root ${CMAKE_BINARY_DIR}/roots/${name})
  cmake_path(GET folder PARENT_PATH parent)
  file(MAKE_DIRECTORY ${root}/${parent})
  file(CREATE_LINK ${CMAKE_SOURCE_DIR}/${folder} ${root}/${folder} SYMBOLIC)
  add_library(${name}_headers INTERFACE)
  target_include_directories(${name}_headers INTERFACE ${root})
endfunction()

# qx_objects(FOLDER SEES folders... SOURCES files...): an object library of the
# folder's name that sees the folder and those that it names.
function(qx_objects folder)
  cmake_parse_arguments(PART "" "" "SEES;SOURCES" ${ARGN})
  string(REPLACE "/" "_" name ${folder})
  qx_headers(${folder})
  add_library(${name} OBJECT ${PART_SOURCES})
  target_link_libraries(${name} PRIVATE qx_flags)
  target_precompile_headers(${name} REUSE_FROM qx_precompiled)
  target_link_libraries(${name} PUBLIC ${name}_headers)
  foreach(seen IN LISTS PART_SEES)
    string(REPLACE "/" "_" seen ${seen})
    target_link_libraries(${name} PUBLIC ${seen}_headers)
  endforeach()
endfunction()

# What nearly every source includes is read once. Only headers of the system: a border
# stays a border. The preset "release" goes without, so that each source is seen to
# include what it uses.
add_library(qx_precompiled OBJECT ${CMAKE_CURRENT_LIST_DIR}/precompiled.cc)
target_link_libraries(qx_precompiled PRIVATE qx_flags)
target_precompile_headers(qx_precompiled PRIVATE
  <algorithm> <functional> <list> <map> <memory> <optional> <set> <stdexcept> <string> <vector>
  <boost/smart_ptr/intrusive_ptr.hpp> <boost/smart_ptr/shared_ptr.hpp>)

# qx_library_part(FOLDER SEES folders... SOURCES files...): an object library that
# becomes part of libqxlinmigrate.so; everything hidden unless marked exported.
function(qx_library_part folder)
  qx_objects(${folder} ${ARGN})
  set_target_properties(${folder} PROPERTIES
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
endfunction()

# Two thirds of what the undefined-behaviour sanitizer costs is a look at every pointer
# before it is used. Tests do without it, and what they test does not.
set(QX_TEST_OPTIONS)
if(CMAKE_CXX_FLAGS MATCHES "-fsanitize=[a-z,]*undefined")
  set(QX_TEST_OPTIONS -fno-sanitize=null,alignment,vptr)
endif()

if(QX_TESTS)
  add_library(qx_test_precompiled OBJECT ${CMAKE_CURRENT_LIST_DIR}/precompiled.cc)
  target_link_libraries(qx_test_precompiled PRIVATE qx_flags GTest::gtest GTest::gmock)
  target_compile_options(qx_test_precompiled PRIVATE ${QX_TEST_OPTIONS})
  target_precompile_headers(qx_test_precompiled PRIVATE
    <gmock/gmock.h> <gtest/gtest.h> <fstream> <map> <set>
    <boost/smart_ptr/intrusive_ptr.hpp> <boost/smart_ptr/shared_ptr.hpp>)
endif()

# qx_test_parts(TARGET): compiles a part of test programs with GoogleTest's headers read
# once for all of them. Tests are compiled as libraries are, which lets them share.
function(qx_test_parts name)
  set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
  target_compile_options(${name} PRIVATE -fPIC ${QX_TEST_OPTIONS})
  target_link_libraries(${name} PRIVATE qx_flags GTest::gtest GTest::gmock)
  target_precompile_headers(${name} REUSE_FROM qx_test_precompiled)
endfunction()

# qx_test(NAME SOURCES files... LINKS targets...): one GoogleTest program.
function(qx_test name)
  cmake_parse_arguments(TEST "" "" "SOURCES;LINKS" ${ARGN})
  add_executable(${name} ${TEST_SOURCES})
  qx_test_parts(${name})
  target_link_libraries(${name} PRIVATE ${TEST_LINKS} GTest::gtest_main)
  set_target_properties(${name} PROPERTIES ENABLE_EXPORTS ON)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT 300)
endfunction()
