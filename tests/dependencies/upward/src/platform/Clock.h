// A platform header that knows a summary: the one include the check must report.
#pragma once

#include "sleep/Night.h"
