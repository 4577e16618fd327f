# How every target of the tree is built: warnings, sanitizers, include roots and globbed sources.

find_package(Threads REQUIRED)

add_library(zel_build_flags INTERFACE)
target_compile_options(zel_build_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wconversion -Wsign-conversion
  $<$<BOOL:${ZEL_WERROR}>:-Werror> -fno-omit-frame-pointer)
# Built files name sources relative to the tree's root, so that they don't depend on where it was built. With a build
# folder below the root, and with ccache, the compiler gets them as ../
add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}/= -ffile-prefix-map=../=)
if(ZEL_SANITIZE)
  # -g1 suffices for line numbers in reports. It takes two thirds of the compile time.
  add_compile_options(-O1 -g1)
  target_compile_options(zel_build_flags INTERFACE -fsanitize=${ZEL_SANITIZE} -fno-sanitize-recover=all)
  target_link_options(zel_build_flags INTERFACE -fsanitize=${ZEL_SANITIZE})
endif()
if(ZEL_FUZZ)
  target_compile_options(zel_build_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()

# zel_include_root(TREE VARIABLE): sets VARIABLE to a folder from which only "TREE/..." can be included, so that a
# library can't include headers of a layer above. The platform needs none: its folder is its root.
function(zel_include_root tree variable)
  set(root ${CMAKE_BINARY_DIR}/include-roots/${tree})
  file(MAKE_DIRECTORY ${root})
  file(CREATE_LINK ${CMAKE_SOURCE_DIR}/${tree} ${root}/${tree} SYMBOLIC)
  set(${variable} ${root} PARENT_SCOPE)
endfunction()

# zel_library(NAME FOLDER...): a library of all sources below the folders, which must be of one tree. Headers are
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
  # Users of the installed library build with their own flags.
  target_link_libraries(${name} PUBLIC Threads::Threads PRIVATE $<BUILD_INTERFACE:zel_build_flags>)
endfunction()

# zel_test(FOLDER LIBRARY...): the test program of a folder of tests/; ctest names and runs its tests one by one.
function(zel_test folder)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cpp)
  if(NOT sources)
    return()
  endif()
  string(REPLACE "/" "_" name ${folder})
  add_executable(test_${name} ${sources})
  target_link_libraries(test_${name} PRIVATE ${ARGN} TestSupport zel_build_flags GTest::gmock GTest::gtest_main)
  # Not optimized: with optimization, the assertion macros take up to five times as long to compile, for code that runs
  # once.
  target_compile_options(test_${name} PRIVATE -O0)
  gtest_discover_tests(test_${name} TEST_PREFIX ${folder}/ NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT 300)
endfunction()
