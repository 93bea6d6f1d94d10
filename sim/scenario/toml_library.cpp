// The one compiled copy of toml++ for the scenario loaders (see section.h).
#define TOML_IMPLEMENTATION
#include "scenario/section.h"
