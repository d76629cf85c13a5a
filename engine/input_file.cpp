#include "engine/input_file.h"

#include <QtCore/QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velmorra {

namespace {
/// A cancelled run must end within 200 ms.
constexpr int pollMilliseconds = 50;
} // namespace

QString systemErrorText(int errorNumber) {
    // Not strerror: it shares a buffer between threads.
    const char* const text = ::strerrordesc_np(errorNumber);
    return text != nullptr ? QString::fromLatin1(text)
                           : QStringLiteral("system error %1").arg(errorNumber);
}

InputFile::~InputFile() {
    close();
}

bool InputFile::failed(const QString& reason) {
    error_ = QStringLiteral("cannot read ") + shownName_ + QStringLiteral(": ") + reason;
    return false;
}

bool InputFile::open(const QString& path, StopCheck stop) {
    close();
    stop_ = std::move(stop);
    error_.clear();
    read_ = 0;
    size_ = -1;
    regular_ = false;
    const bool standard = path == QLatin1String("-");
    shownName_ = standard ? QStringLiteral("standard input") : u'\'' + path + u'\'';
    if (path.isEmpty())
        return failed(QStringLiteral("no file name given"));
    if (path.contains(QChar(0)))
        return failed(QStringLiteral("a file name cannot hold a NUL character"));
    // Not blocking: a named pipe without a writer would hold up the open itself.
    file_ = standard ? STDIN_FILENO
                     : ::open(QFile::encodeName(path).constData(),
                              O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    struct stat status = {};
    if (file_ < 0 || ::fstat(file_, &status) != 0)
        return failed(systemErrorText(errno));
    if (S_ISDIR(status.st_mode))
        return failed(QStringLiteral("it is a directory"));
    regular_ = S_ISREG(status.st_mode);
    if (regular_) {
        size_ = status.st_size;
        ::posix_fadvise(file_, 0, 0, POSIX_FADV_SEQUENTIAL);
    }
    return true;
}

bool InputFile::waitForBytes() {
    while (!stop_ || !stop_()) {
        if (regular_)
            return true;
        pollfd waiting = {file_, POLLIN, 0};
        const int ready = ::poll(&waiting, 1, pollMilliseconds);
        if (ready > 0)
            return true;
        if (ready < 0 && errno != EINTR)
            return failed(systemErrorText(errno));
    }
    return false;
}

qint64 InputFile::read(uchar* bytes, qint64 room) {
    if (file_ < 0)
        return -1;
    for (;;) {
        if (!waitForBytes())
            return -1;
        const ssize_t got = ::read(file_, bytes, static_cast<size_t>(room));
        if (got > 0) {
            read_ += got;
            return got;
        }
        if (got == 0) {
            // Standard input may have been read in part by another program before.
            const bool cut = regular_ && file_ != STDIN_FILENO && read_ < size_;
            if (!cut)
                return 0;
            failed(QStringLiteral("it became shorter while it was read (%1 of %2 bytes)")
                       .arg(read_.load())
                       .arg(size_.load()));
            return -1;
        }
        if (errno != EINTR && errno != EAGAIN) {
            failed(systemErrorText(errno));
            return -1;
        }
    }
}

void InputFile::close() {
    if (file_ > STDIN_FILENO)
        ::close(file_);
    file_ = -1;
}

double InputFile::share() const {
    const qint64 size = size_;
    if (size < 0)
        return -1;
    return size == 0 ? 1 : std::min(1.0, double(read_) / double(size));
}

} // namespace velmorra
