// Symbol visibility. The shared library is built with hidden visibility. It exports the classes and
// functions marked QOR_PUBLIC: those that a user of the library may call, derive from, throw or
// catch.
#pragma once

#include "Qor/Standard.h"

#define QOR_PUBLIC __attribute__((visibility("default")))
