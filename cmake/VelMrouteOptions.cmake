# How every target of this tree is compiled: the build options, and `velmroute_options`, which each
# target links privately.

option(BUILD_TESTING "Build the tests" ON)
option(VELMROUTE_SANITIZE "Build with the address and undefined behaviour sanitizers" OFF)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
   set(CMAKE_BUILD_TYPE Release CACHE STRING "Debug or Release" FORCE)
endif()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
# `cmake --compile-no-warning-as-error` lifts this for a compiler that warns about more than ours.
set(CMAKE_COMPILE_WARNING_AS_ERROR ON)

add_library(velmroute_options INTERFACE)
target_compile_options(velmroute_options INTERFACE
   -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
   # Assertion texts name the source as the tree does, not as the machine that built it did.
   -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
target_link_options(velmroute_options INTERFACE LINKER:--as-needed)

set(VELMROUTE_SANITIZER_FLAGS)
if(VELMROUTE_SANITIZE)
   set(VELMROUTE_SANITIZER_FLAGS -fsanitize=address,undefined -fno-sanitize-recover=all
       -fno-omit-frame-pointer)
   target_compile_options(velmroute_options INTERFACE ${VELMROUTE_SANITIZER_FLAGS})
   target_link_options(velmroute_options INTERFACE ${VELMROUTE_SANITIZER_FLAGS})
endif()
