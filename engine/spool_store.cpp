#include "engine/spool_store.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace velmorra {

namespace {

QString systemError(int number) {
    return QString::fromLocal8Bit(std::strerror(number));
}

} // namespace

SpoolStore::SpoolStore(qint64 memoryLimit, qint64 fileLimit, const QString& folder)
    : memoryLimit_(memoryLimit),
      fileLimit_(fileLimit),
      folder_(folder.isEmpty() ? QDir::tempPath() : folder) {}

SpoolStore::~SpoolStore() {
    if (file_ >= 0)
        ::close(file_);
}

bool SpoolStore::reserve(qint64 bytes) {
    if (memory_ + bytes > memoryLimit_)
        return false;
    memory_ += bytes;
    return true;
}

bool SpoolStore::openFile(QString* error) {
    QByteArray name = QFile::encodeName(folder_ + QLatin1String("/velmorra-rows-XXXXXX"));
    file_ = ::mkostemp(name.data(), O_CLOEXEC);
    if (file_ < 0) {
        *error = QStringLiteral("can't make a temporary file in '%1': %2")
                     .arg(folder_, systemError(errno));
        return false;
    }
    // Without a name the file goes away with the process, whatever ends it.
    ::unlink(name.constData());
    return true;
}

qint64 SpoolStore::write(const uchar* bytes, qint64 size, qint64 room, QString* error) {
    if (file_ < 0 && !openFile(error))
        return -1;
    qint64 place = end_;
    const auto reusable = free_.find(room);
    if (reusable != free_.end() && !reusable->second.empty()) {
        place = reusable->second.back();
        reusable->second.pop_back();
    } else if (end_ + room > fileLimit_) {
        *error = QStringLiteral("the rows that wait between boxes have filled the temporary file "
                                "in '%1' up to its limit of %2 bytes")
                     .arg(folder_, QString::number(fileLimit_));
        return -1;
    } else {
        end_ += room;
    }
    for (qint64 done = 0; done < size;) {
        const ssize_t written =
            ::pwrite(file_, bytes + done, static_cast<size_t>(size - done), place + done);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0) {
            *error = QStringLiteral("can't write rows that wait between boxes to a temporary file "
                                    "in '%1': %2")
                         .arg(folder_, systemError(errno));
            return -1;
        }
        done += written;
    }
    return place;
}

bool SpoolStore::read(qint64 place, uchar* bytes, qint64 size, QString* error) const {
    for (qint64 done = 0; done < size;) {
        const ssize_t got =
            ::pread(file_, bytes + done, static_cast<size_t>(size - done), place + done);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0) {
            *error = QStringLiteral("can't read rows back from a temporary file in '%1': %2")
                         .arg(folder_, got < 0 ? systemError(errno)
                                               : QStringLiteral("it is shorter than it was"));
            return false;
        }
        done += got;
    }
    return true;
}

} // namespace velmorra
