#pragma once

// The macro ZAM_API, which stands at the bottom of the house so that every floor can use it.
#include "qel/export.h"
