// Kept for tests that still include it by this name.
#pragma once
#include "test_util.h"
