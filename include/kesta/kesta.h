#ifndef KESTA_KESTA_H
#define KESTA_KESTA_H
// Everything a consumer of the logging-database library needs:
//
//   #include <kesta/kesta.h>
//   // link kesta::kesta (CMake) or `pkg-config --libs kesta`

#include "container/ZRContainerFile.h"
#include "fieldmap/FieldMap.h"
#include "record/DBFieldTypes.h"
#include "record/KSTBase.h"
#include "record/dbrecord.h"
#include "record/iKST.h"
#include "record/kesta.h"
#include "support/AttribValuePair.h"
#include "support/Config.h"
#include "support/Cookie.h"
#include "support/CookieContainers.h"
#include "support/CriticalSection.h"
#include "support/GrowString.h"
#include "support/LightweightString.h"
#include "support/Log.h"
#include "support/Notifier.h"
#include "support/OS.h"
#include "support/StringUtils.h"
#include "support/SystemWatchdog.h"
#include "support/TextFile.h"
#include "support/TextSearch.h"
#include "support/TimeDef.h"
#include "support/ZrPtr.h"
#include "view/KSTView.h"
#include "view/KSTViewCursor.h"
#include "view/KSTViewRep.h"

#endif
