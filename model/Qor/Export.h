// Symbol visibility. The shared library is built with hidden visibility; what a user of the
// library may call, derive from, throw or catch is marked QOR_PUBLIC, and nothing else leaves it.
#pragma once

#define QOR_PUBLIC __attribute__((visibility("default")))
