// SPDX-License-Identifier: Apache-2.0
#define SIMDE_ENABLE_NATIVE_ALIASES
#include <simde/arm/neon.h>
