#define SIMDE_ENABLE_NATIVE_ALIASES
#include <simde/arm/neon.h>
