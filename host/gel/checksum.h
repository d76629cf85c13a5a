/// The checksum of a gel file's parts: the 64-bit form of XXH3.
#pragma once

#include "host/export.h"

namespace gel {

/// `seed` brings a checksum of what comes before into this one.
VELMORRA_CORE quint64 checksum(const void* bytes, size_t size, quint64 seed = 0);

} // namespace gel
