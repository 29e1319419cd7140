#include "kesta_version.h"

#include "record/kesta.h"

const char* kestaDllVersionStr() { return KESTA_VERSION_STRING; }
