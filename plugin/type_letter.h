/// The letter of a meta type or sort type, as messages show it.
#pragma once

#include "host/meta_info.h"

inline QString typeLetter(qint32 code) {
    return QString(QChar(static_cast<char16_t>(code)));
}
