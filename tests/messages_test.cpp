#include "tests/support/household.h"
