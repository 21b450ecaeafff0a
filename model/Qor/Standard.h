// The language that all headers need. Each header of the library includes this one, mostly by way of
// others.
#pragma once

#if __cplusplus < 202002L
#error "The headers of libVelMroute need C++20: compile with -std=c++20 or later."
// The file does not exist, and so the compilation ends here, without further errors.
#include "-std=c++20"
#endif
