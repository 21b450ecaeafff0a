# Defines the build options of the tree and the interface library `velmroute_options`. Each target
# links that library privately and so gets the compiler's and the linker's flags.

include(CMakeDependentOption)
option(VELMROUTE_PROGRAM "Build the program velmroute, which needs more than the compiler" ON)
# The tests link most of the program.
cmake_dependent_option(BUILD_TESTING "Build the tests" ON VELMROUTE_PROGRAM OFF)
option(VELMROUTE_SANITIZE "Build with the address and undefined behaviour sanitizers" OFF)
option(VELMROUTE_FUZZ "Build with Clang's fuzzer, beside the sanitizers, and its program" OFF)
option(VELMROUTE_JOIN "Compile several sources of a directory in one call of the compiler" OFF)
option(VELMROUTE_COVERAGE "Count how often each line is run" OFF)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
   set(CMAKE_BUILD_TYPE Release CACHE STRING "Debug or Release" FORCE)
endif()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
# Other compilers warn about other things, so only warnings of g++ are errors. For a version of g++
# that warns about more, `cmake --compile-no-warning-as-error` turns this off.
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
   set(CMAKE_COMPILE_WARNING_AS_ERROR ON)
endif()

add_library(velmroute_options INTERFACE)
target_compile_options(velmroute_options INTERFACE
   -Wall -Wextra -Wpedantic
   # In a joined source a local name may hide a name of the source before it.
   $<$<NOT:$<BOOL:$<TARGET_PROPERTY:UNITY_BUILD>>>:-Wshadow>
   -Wnon-virtual-dtor
   # Assertion texts contain the path of a source within the tree, not within the building machine.
   -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
   # The compiler's own garbage collection costs a tenth of the time of a build. With this limit, in
   # kilobytes, it rarely collects; a compilation needs up to 200 MB more.
   target_compile_options(velmroute_options INTERFACE --param=ggc-min-heapsize=300000)
endif()
target_link_options(velmroute_options INTERFACE LINKER:--as-needed)

set(VELMROUTE_SANITIZER_FLAGS)
if(VELMROUTE_SANITIZE)
   set(VELMROUTE_SANITIZER_FLAGS -fsanitize=address,undefined -fno-sanitize-recover=all
       -fno-omit-frame-pointer)
   if(VELMROUTE_FUZZ)
      # These checks compare type information across the border of the library, where that of hidden
      # classes differs. They would report correct calls.
      list(APPEND VELMROUTE_SANITIZER_FLAGS -fsanitize=fuzzer-no-link -fno-sanitize=vptr,function)
   endif()
   target_compile_options(velmroute_options INTERFACE ${VELMROUTE_SANITIZER_FLAGS})
   target_link_options(velmroute_options INTERFACE ${VELMROUTE_SANITIZER_FLAGS})
endif()

if(VELMROUTE_COVERAGE)
   target_compile_options(velmroute_options INTERFACE --coverage)
   target_link_options(velmroute_options INTERFACE --coverage LINKER:--wrap=_exit
                       LINKER:--wrap=__gcov_fork LINKER:--wrap=abort)
   target_sources(velmroute_options INTERFACE ${CMAKE_CURRENT_LIST_DIR}/Coverage.cpp)
endif()

# Joins the sources of `target`: with VELMROUTE_JOIN the compiler reads up to SIZE sources of one
# directory in one call, so that it reads their headers once. Generated sources stay alone, as do those
# with the property SKIP_UNITY_BUILD_INCLUSION. A joined source may use an include of its neighbours.
# The presets without VELMROUTE_JOIN find such a missing include.
function(velmroute_join target size)
   if(NOT VELMROUTE_JOIN)
      return()
   endif()
   get_target_property(sources ${target} SOURCES)
   list(FILTER sources EXCLUDE REGEX "^${PROJECT_BINARY_DIR}/")
   foreach(source IN LISTS sources)
      cmake_path(GET source PARENT_PATH room)
      cmake_path(RELATIVE_PATH room BASE_DIRECTORY ${PROJECT_SOURCE_DIR})
      string(MAKE_C_IDENTIFIER "${room}" room)
      if(NOT DEFINED count_${room})
         set(count_${room} 0)
      endif()
      math(EXPR batch "${count_${room}} / ${size} + 1")
      math(EXPR count_${room} "${count_${room}} + 1")
      set_source_files_properties(${source} PROPERTIES UNITY_GROUP ${room}_${batch})
   endforeach()
   set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
endfunction()
