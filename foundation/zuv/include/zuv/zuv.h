#pragma once

/// The value library: dynamically typed trees, the paths of their nodes and the walk over them.

#include "zuv/error.h"
#include "zuv/for_each.h"
#include "zuv/path.h"
#include "zuv/value.h"
