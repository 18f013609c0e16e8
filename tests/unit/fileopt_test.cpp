#include "ir_fixture.h"
