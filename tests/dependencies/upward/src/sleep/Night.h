// A summary header that includes only what lies below it.
#pragma once

#include "velk/Date.h"
