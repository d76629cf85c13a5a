#include "engine/temporary_file.h"

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

TemporaryFile::TemporaryFile(QString contents, const QString& folder)
    : contents_(std::move(contents)),
      folder_(folder.isEmpty() ? QDir::tempPath() : folder) {}

TemporaryFile::~TemporaryFile() {
    if (file_ >= 0)
        ::close(file_);
}

bool TemporaryFile::open(QString* error) {
    const QByteArray folder = QFile::encodeName(folder_);
    file_ = ::open(folder.constData(), O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (file_ >= 0)
        return true;
    // Not every file system has files that never had a name.
    QByteArray name = folder + "/velmorra-rows-XXXXXX";
    file_ = ::mkostemp(name.data(), O_CLOEXEC);
    if (file_ < 0) {
        *error = QStringLiteral("can't make a temporary file in '%1': %2")
                     .arg(folder_, systemError(errno));
        return false;
    }
    ::unlink(name.constData());
    return true;
}

bool TemporaryFile::write(qint64 place, const uchar* bytes, qint64 size, QString* error) {
    if (file_ < 0 && !open(error))
        return false;
    for (qint64 done = 0; done < size;) {
        const ssize_t written =
            ::pwrite(file_, bytes + done, static_cast<size_t>(size - done), place + done);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0) {
            *error = QStringLiteral("can't write %1 to a temporary file in '%2': %3")
                         .arg(contents_, folder_, systemError(errno));
            return false;
        }
        done += written;
    }
    return true;
}

bool TemporaryFile::read(qint64 place, uchar* bytes, qint64 size, QString* error) const {
    for (qint64 done = 0; done < size;) {
        const ssize_t got =
            ::pread(file_, bytes + done, static_cast<size_t>(size - done), place + done);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0) {
            *error = QStringLiteral("can't read %1 back from a temporary file in '%2': %3")
                         .arg(contents_, folder_,
                              got < 0 ? systemError(errno)
                                      : QStringLiteral("it is shorter than it was"));
            return false;
        }
        done += got;
    }
    return true;
}

void TemporaryFile::discard(qint64 place, qint64 size) {
    if (file_ >= 0 && size > 0)
        ::fallocate(file_, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, place, size);
}

} // namespace velmorra
