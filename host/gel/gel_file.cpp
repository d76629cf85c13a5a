#include "host/gel/gel_file.h"

#include "host/gel/checksum.h"
#include "host/gel/column_section.h"

#include <QtCore/QFile>

#include <cerrno>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

namespace gel {

int GelFile::open(const QString& path) {
    close();
    const bool standard = path == QLatin1String("-");
    shownName_ = standard ? QStringLiteral("standard input") : u'\'' + path + u'\'';
    const auto failed = [&](int error, const QString& reason) {
        problem_ = QStringLiteral("cannot read ") + shownName_ + QStringLiteral(": ") + reason;
        return error;
    };
    if (path.isEmpty())
        return failed(ENOENT, QStringLiteral("no file name given"));
    if (path.contains(QChar(0)))
        return failed(ENOENT, QStringLiteral("a file name cannot hold a NUL character"));
    // Not blocking: a named pipe without a writer would hold up the open itself.
    file_ = standard ? ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                     : ::open(QFile::encodeName(path).constData(),
                              O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    struct stat status = {};
    if (file_ < 0 || ::fstat(file_, &status) != 0)
        return failed(errno, QString::fromLatin1(::strerrordesc_np(errno)));
    if (S_ISDIR(status.st_mode))
        return failed(EISDIR, QStringLiteral("it is a directory"));
    if (!S_ISREG(status.st_mode))
        return failed(ESPIPE, QStringLiteral("a gel file has its index at its end, which a pipe or "
                                             "device cannot go to"));
    size_ = static_cast<quint64>(status.st_size);
    ::posix_fadvise(file_, 0, 0, POSIX_FADV_SEQUENTIAL);
    try {
        check();
    } catch (const std::bad_alloc&) {
        return failed(ENOMEM, QStringLiteral("not enough memory for its columns and index"));
    }
    return 0;
}

void GelFile::close() {
    if (file_ >= 0)
        ::close(file_);
    file_ = -1;
    problem_ = {};
    columns_ = {};
    index_.clear();
    places_.clear();
}

bool GelFile::readAt(quint64 place, size_t size, uchar* bytes) const {
    while (size > 0) {
        const ssize_t got = ::pread(file_, bytes, size, static_cast<off_t>(place));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        bytes += got;
        place += static_cast<quint64>(got);
        size -= static_cast<size_t>(got);
    }
    return true;
}

bool GelFile::damaged(const char* what) {
    problem_ = shownName_ + QLatin1String(" is damaged: ") + QLatin1String(what);
    return false;
}

void GelFile::check() {
    quint64 headerChecksum = 0;
    if (readHeader(&headerChecksum))
        readIndex(headerChecksum);
}

bool GelFile::readHeader(quint64* headerChecksum) {
    uchar prefix[prefixBytes];
    const QString notGel = shownName_ + QLatin1String(" is not a gel file");
    if (size_ == 0) {
        problem_ = notGel + QLatin1String(": it is empty");
        return false;
    }
    if (size_ < prefixBytes || !readAt(0, prefixBytes, prefix) ||
        std::memcmp(prefix, magic, sizeof magic) != 0) {
        problem_ = notGel;
        return false;
    }
    const quint32 fileVersion = load<quint32>(prefix + 8);
    if (fileVersion != version) {
        problem_ = shownName_ + QStringLiteral(" is a gel file of version %1; this program reads "
                                               "version %2")
                                    .arg(fileVersion)
                                    .arg(version);
        return false;
    }
    const quint32 columnBytes = load<quint32>(prefix + 12);
    blocksAt_ = prefixBytes + quint64(columnBytes) + checksumBytes;
    if (columnBytes > mostColumnBytes || blocksAt_ + footerBytes > size_)
        return damaged("it is cut off, or its header is wrong");
    GrowingBytes header;
    header.append(prefix, prefixBytes);
    if (!readAt(prefixBytes, columnBytes + checksumBytes, header.add(columnBytes + checksumBytes)))
        return damaged("its header can't be read");
    const size_t checked = prefixBytes + columnBytes;
    *headerChecksum = checksum(header.data(), checked);
    const ByteTaker section(header.data() + prefixBytes, columnBytes);
    if (load<quint64>(header.data() + checked) != *headerChecksum ||
        !takeColumns(section, &columns_))
        return damaged("its header isn't as it was written");
    return true;
}

/// The index and the footer, and whether all parts together are the file.
bool GelFile::readIndex(quint64 headerChecksum) {
    uchar footer[footerBytes];
    if (!readAt(size_ - footerBytes, footerBytes, footer) ||
        std::memcmp(footer + 32, endMark, sizeof endMark) != 0)
        return damaged("it is cut off, or its end is wrong");
    rows_ = load<quint64>(footer);
    const quint64 blocks = load<quint64>(footer + 8);
    const quint64 indexAt = load<quint64>(footer + 16);
    const quint64 indexEnd = size_ - footerBytes;
    if (indexAt < blocksAt_ || indexAt > indexEnd ||
        blocks != (indexEnd - indexAt) / indexEntryBytes ||
        (indexEnd - indexAt) % indexEntryBytes != 0)
        return damaged("it is cut off, or its end is wrong");
    quint64 sum = headerChecksum;
    if (!readEntries(indexAt, &sum) || checksum(footer, 24, sum) != load<quint64>(footer + 24))
        return damaged("its index isn't as it was written");
    return true;
}

bool GelFile::readEntries(quint64 indexAt, quint64* sum) {
    const quint64 indexEnd = size_ - footerBytes;
    quint64 place = blocksAt_;
    quint64 rows = 0;
    GrowingBytes bytes;
    for (quint64 at = indexAt; at < indexEnd; at += bytes.size()) {
        const quint64 most = indexPart * indexEntryBytes;
        bytes.clear();
        const size_t size = static_cast<size_t>(std::min(most, indexEnd - at));
        if (!readAt(at, size, bytes.add(size)))
            return false;
        *sum = checksum(bytes.data(), size, *sum);
        ByteTaker taker(bytes.data(), size);
        while (taker.left() > 0) {
            BlockEntry entry = {};
            entry.rows = taker.take<quint32>();
            entry.cellBytes = taker.take<quint32>();
            entry.encodedBytes = taker.take<quint32>();
            entry.storedBytes = taker.take<quint32>();
            entry.checksum = taker.take<quint64>();
            if (!isSound(entry) || entry.storedBytes > indexAt - place)
                return false;
            index_.push_back(entry);
            places_.push_back(place);
            place += entry.storedBytes;
            rows += entry.rows;
        }
    }
    return place == indexAt && rows == rows_;
}

bool GelFile::isSound(const BlockEntry& entry) const {
    const quint64 columns = static_cast<quint64>(columns_.names.size());
    return entry.rows > 0 && entry.rows <= mostBlockRows && entry.cellBytes <= mostCellBytes &&
           entry.encodedBytes <= mostEncodedBytes(entry.cellBytes, columns) &&
           entry.cellBytes <= 2 * quint64(entry.encodedBytes) + 8 * entry.rows * columns &&
           entry.encodedBytes <= mostExpansion * entry.storedBytes &&
           entry.storedBytes <= mostStoredBytes(entry.encodedBytes);
}

bool GelFile::readBlock(size_t block, GrowingBytes* stored) const {
    const BlockEntry& entry = index_[block];
    stored->clear();
    uchar* const bytes = stored->add(entry.storedBytes);
    return readAt(places_[block], entry.storedBytes, bytes) &&
           checksum(bytes, entry.storedBytes) == entry.checksum;
}

QString GelFile::blockProblem(size_t block) const {
    quint64 before = 0;
    for (size_t i = 0; i < block; ++i)
        before += index_[i].rows;
    return shownName_ + QStringLiteral(" is damaged: block %1 of %2 (rows %3 to %4)")
                            .arg(block + 1)
                            .arg(index_.size())
                            .arg(before + 1)
                            .arg(before + index_[block].rows);
}

} // namespace gel
