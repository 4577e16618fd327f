# How every target of the tree is built: warnings, sanitizers, include roots and globbed sources.

find_package(Threads REQUIRED)

add_library(zel_build_flags INTERFACE)
target_compile_options(zel_build_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wconversion -Wsign-conversion
  $<$<BOOL:${ZEL_WERROR}>:-Werror> -fno-omit-frame-pointer)
# What is built names its sources from the tree's root, so that it says nothing of the machine that built it. A build
# folder below the root, and ccache, have them as ../
add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}/= -ffile-prefix-map=../=)
if(ZEL_SANITIZE)
  # Enough for a report's line numbers, in two thirds of the compile time.
  add_compile_options(-O1 -g1)
  target_compile_options(zel_build_flags INTERFACE -fsanitize=${ZEL_SANITIZE} -fno-sanitize-recover=all)
  target_link_options(zel_build_flags INTERFACE -fsanitize=${ZEL_SANITIZE})
endif()

# zel_include_root(TREE VARIABLE): sets VARIABLE to a folder from which "TREE/..." can be included and nothing else,
# so that a library can't include what it may not see. The platform's folders have theirs already.
function(zel_include_root tree variable)
  set(root ${CMAKE_BINARY_DIR}/include-roots/${tree})
  file(MAKE_DIRECTORY ${root})
  file(CREATE_LINK ${CMAKE_SOURCE_DIR}/${tree} ${root}/${tree} SYMBOLIC)
  set(${variable} ${root} PARENT_SCOPE)
endfunction()

# zel_library(NAME FOLDER...): one library of all the sources below the folders, which are of one tree. Headers are
# included by their path from the root of their tree: "kiln/Ptr.h", "counters/mac/MacCounters.h".
function(zel_library name)
  set(sources)
  foreach(folder IN LISTS ARGN)
    file(GLOB_RECURSE found CONFIGURE_DEPENDS ${folder}/*.cpp ${folder}/*.h)
    list(APPEND sources ${found})
  endforeach()
  add_library(${name} ${sources})
  set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX POSITION_INDEPENDENT_CODE ON)
  target_compile_features(${name} PUBLIC cxx_std_20)
  if(ARGV1 MATCHES "^platform/")
    set(root ${CMAKE_SOURCE_DIR}/platform)
  else()
    zel_include_root(${ARGV1} root)
  endif()
  target_include_directories(${name} PUBLIC $<BUILD_INTERFACE:${root}>)
  # Whoever links the installed library builds with flags of their own.
  target_link_libraries(${name} PUBLIC Threads::Threads PRIVATE $<BUILD_INTERFACE:zel_build_flags>)
endfunction()

# zel_test(FOLDER LIBRARY...): one test program a folder of tests/; ctest runs and names its tests one by one.
function(zel_test folder)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cpp)
  if(NOT sources)
    return()
  endif()
  string(REPLACE "/" "_" name ${folder})
  add_executable(test_${name} ${sources})
  target_link_libraries(test_${name} PRIVATE ${ARGN} TestSupport zel_build_flags GTest::gmock GTest::gtest_main)
  # Not optimized: assertion macros cost up to five times as much to compile otherwise, and run once.
  target_compile_options(test_${name} PRIVATE -O0)
  gtest_discover_tests(test_${name} TEST_PREFIX ${folder}/ NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT 300)
endfunction()
