// A front header of the platform.
#pragma once
