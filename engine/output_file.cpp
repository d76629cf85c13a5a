#include "engine/output_file.h"

#include <QtCore/QFile>

#include <cerrno>
#include <climits>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

namespace velmorra {

namespace {

/// A cancelled run must end within 200 ms.
constexpr int pollMilliseconds = 50;
constexpr int mostLinks = 40;

/// Keeps a write to a pipe without a reader from raising SIGPIPE in this thread.
class NoPipeSignal {
public:
    NoPipeSignal() {
        sigemptyset(&pipe_);
        sigaddset(&pipe_, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        wasPending_ = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
    }
    ~NoPipeSignal() {
        const int error = errno;
        const timespec now = {0, 0};
        if (error == EPIPE && !wasPending_)
            sigtimedwait(&pipe_, nullptr, &now);
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        errno = error;
    }
    NoPipeSignal(const NoPipeSignal&) = delete;
    NoPipeSignal& operator=(const NoPipeSignal&) = delete;

private:
    sigset_t pipe_ = {};
    sigset_t before_ = {};
    bool wasPending_ = false;
};

QByteArray folderOf(const QByteArray& path) {
    const qsizetype slash = path.lastIndexOf('/');
    return slash < 0 ? QByteArray() : path.left(slash + 1);
}

/// Follows symbolic links to the name of a file that may not exist yet. Empty, with errno, when the
/// links go in a circle.
QByteArray endOfLinks(QByteArray path) {
    for (int i = 0; i < mostLinks; ++i) {
        char link[PATH_MAX];
        const ssize_t length = ::readlink(path.constData(), link, sizeof link);
        if (length < 0)
            return path;
        const QByteArray next(link, length);
        path = next.startsWith('/') ? next : folderOf(path) + next;
    }
    errno = ELOOP;
    return {};
}

QByteArray randomSuffix() {
    static constexpr char letters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    std::random_device device;
    std::uniform_int_distribution<size_t> place(0, sizeof letters - 2);
    QByteArray suffix;
    for (int i = 0; i < 6; ++i)
        suffix += letters[place(device)];
    return suffix;
}

} // namespace

OutputFile::~OutputFile() {
    discard();
    if (file_ >= 0 && owned_)
        ::close(file_);
}

bool OutputFile::failed(int errorNumber, const QString& what) {
    if (error_.isNull())
        error_ = QStringLiteral("cannot write ") + shownName_ + QStringLiteral(": ") +
                 (what.isNull() ? systemErrorText(errorNumber) : what);
    return false;
}

bool OutputFile::open(const QString& path, StopCheck stop) {
    stop_ = std::move(stop);
    const bool standard = path == QLatin1String("-");
    shownName_ = standard ? QStringLiteral("standard output") : u'\'' + path + u'\'';
    if (path.isEmpty())
        return failed(0, QStringLiteral("no file name given"));
    if (path.contains(QChar(0)))
        return failed(0, QStringLiteral("a file name cannot hold a NUL character"));
    if (standard) {
        file_ = STDOUT_FILENO;
        owned_ = false;
        struct stat status = {};
        if (::fstat(file_, &status) != 0)
            return failed(errno);
        waits_ = !S_ISREG(status.st_mode);
        chunk_ = PIPE_BUF;
        return !S_ISFIFO(status.st_mode) || reopenPipe();
    }
    struct stat status = {};
    const bool exists = ::stat(QFile::encodeName(path).constData(), &status) == 0;
    if (!exists && errno != ENOENT)
        return failed(errno);
    if (exists && S_ISDIR(status.st_mode))
        return failed(0, QStringLiteral("it is a directory"));
    if (exists && !S_ISREG(status.st_mode))
        return openDirectly(path);
    mode_ = exists ? status.st_mode & 07777u : 0;
    return openBeside(path);
}

/// A description of the pipe of our own can be made non-blocking without changing the one that is
/// shared with other programs. Where there is none, small pieces do.
bool OutputFile::reopenPipe() {
    const int own = ::open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (own >= 0) {
        file_ = own;
        owned_ = true;
        chunk_ = LLONG_MAX;
    }
    return true;
}

bool OutputFile::openDirectly(const QString& path) {
    const QByteArray name = QFile::encodeName(path);
    for (;;) {
        file_ = ::open(name.constData(), O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
        if (file_ >= 0)
            break;
        // A named pipe that nobody reads yet.
        if (errno != ENXIO && errno != EINTR)
            return failed(errno);
        if (stop_ && stop_())
            return false;
        ::poll(nullptr, 0, pollMilliseconds);
    }
    waits_ = true;
    chunk_ = LLONG_MAX;
    return true;
}

bool OutputFile::openBeside(const QString& path) {
    target_ = endOfLinks(QFile::encodeName(path));
    if (target_.isEmpty())
        return failed(errno);
    // Replacing a file takes leave to write to its folder only; respect a file that is protected.
    if (mode_ != 0 && ::access(target_.constData(), W_OK) != 0)
        return failed(errno);
    return makeTemporary();
}

bool OutputFile::makeTemporary() {
    constexpr qsizetype longestName = 200;
    const QByteArray folder = folderOf(target_);
    const QByteArray name = target_.mid(folder.size()).left(longestName);
    const std::lock_guard<std::mutex> guard(temporaryLock_);
    for (int i = 0; i < 100; ++i) {
        const QByteArray candidate = folder + '.' + name + ".velmorra-" + randomSuffix();
        file_ = ::open(candidate.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (file_ < 0 && errno == EEXIST)
            continue;
        if (file_ < 0)
            return failed(errno);
        temporary_ = candidate;
        return mode_ == 0 || ::fchmod(file_, mode_) == 0 || failed(errno);
    }
    return failed(EEXIST);
}

bool OutputFile::waitForRoom() {
    while (!stop_ || !stop_()) {
        pollfd waiting = {file_, POLLOUT, 0};
        const int ready = ::poll(&waiting, 1, pollMilliseconds);
        if (ready > 0)
            return true;
        if (ready < 0 && errno != EINTR)
            return failed(errno);
    }
    return false;
}

bool OutputFile::write(const char* bytes, qint64 size) {
    if (file_ < 0 || !error_.isNull())
        return false;
    while (size > 0 && !readerGone_) {
        if (waits_ && !waitForRoom())
            return false;
        const size_t piece = size_t(waits_ ? std::min(size, chunk_) : size);
        ssize_t written = 0;
        {
            const NoPipeSignal guard;
            written = ::write(file_, bytes, piece);
        }
        if (written < 0 && !handleWriteError(errno))
            return false;
        if (written > 0) {
            bytes += written;
            size -= written;
        }
    }
    return true;
}

/// Whether writing may go on.
bool OutputFile::handleWriteError(int errorNumber) {
    if (errorNumber == EPIPE)
        readerGone_ = true;
    const bool passing = errorNumber == EPIPE || errorNumber == EINTR || errorNumber == EAGAIN;
    return passing || failed(errorNumber);
}

bool OutputFile::finish() {
    if (!error_.isNull())
        return false;
    const int file = std::exchange(file_, -1);
    // Some file systems tell of a full disk only here.
    return file < 0 || !owned_ || ::close(file) == 0 || failed(errno);
}

bool OutputFile::commit() {
    if (!error_.isNull())
        return false;
    const std::lock_guard<std::mutex> guard(temporaryLock_);
    if (target_.isEmpty())
        return true;
    if (temporary_.isEmpty())
        return failed(0, QStringLiteral("the output was discarded"));
    if (::rename(temporary_.constData(), target_.constData()) != 0)
        return failed(errno);
    temporary_.clear();
    target_.clear();
    return true;
}

void OutputFile::discard() {
    const std::lock_guard<std::mutex> guard(temporaryLock_);
    if (!temporary_.isEmpty())
        ::unlink(temporary_.constData());
    temporary_.clear();
}

} // namespace velmorra
