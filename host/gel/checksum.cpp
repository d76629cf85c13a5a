#include "host/gel/checksum.h"

#include <xxhash.h>

namespace gel {

quint64 checksum(const void* bytes, size_t size, quint64 seed) {
    return XXH3_64bits_withSeed(bytes, size, seed);
}

} // namespace gel
