#include "engine/spool_store.h"

namespace velmorra {

SpoolStore::SpoolStore(qint64 memoryLimit, qint64 fileLimit, const QString& folder)
    : memoryLimit_(memoryLimit),
      fileLimit_(fileLimit),
      file_(QStringLiteral("rows that wait between boxes"), folder) {}

bool SpoolStore::reserve(qint64 bytes) {
    if (memory_ + bytes > memoryLimit_)
        return false;
    memory_ += bytes;
    return true;
}

qint64 SpoolStore::write(const uchar* bytes, qint64 size, qint64 room, QString* error) {
    qint64 place = end_;
    const auto reusable = free_.find(room);
    if (reusable != free_.end() && !reusable->second.empty()) {
        place = reusable->second.back();
        reusable->second.pop_back();
    } else if (end_ + room > fileLimit_) {
        *error = QStringLiteral("the rows that wait between boxes have filled the temporary file "
                                "in '%1' up to its limit of %2 bytes")
                     .arg(file_.folder(), QString::number(fileLimit_));
        return -1;
    } else {
        end_ += room;
    }
    return file_.write(place, bytes, size, error) ? place : -1;
}

} // namespace velmorra
