/// Marks what libVelmorraCore offers to plug-ins and programs.
#pragma once

#include <QtCore/qglobal.h>

#ifdef VELMORRA_CORE_BUILD
#define VELMORRA_CORE Q_DECL_EXPORT
#else
#define VELMORRA_CORE Q_DECL_IMPORT
#endif
