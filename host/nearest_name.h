/// The known name that a misspelt one most likely stands for.
#pragma once

#include "host/export.h"

#include <QtCore/QStringList>

/// The name in `known` at the smallest edit distance from `name` without regard to case, the first
/// of several; else the one whose beginning is close to it, as `SelectColumns` is to `slect`; a
/// null string when none is close enough to be meant.
VELMORRA_CORE QString nearestName(const QString& name, const QStringList& known);
