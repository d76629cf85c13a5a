/// A temporary file without a name: it goes away with the process, whatever ends it.
///
/// One thread at a time.
#pragma once

#include <QtCore/QString>

namespace velmorra {

class TemporaryFile {
public:
    /// `contents` names what is written, for messages: "sorted rows". An empty folder is the
    /// system's folder for such files. Nothing is made before the first write.
    TemporaryFile(QString contents, const QString& folder);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    /// False with `error` set.
    bool write(qint64 place, const uchar* bytes, qint64 size, QString* error);
    bool read(qint64 place, uchar* bytes, qint64 size, QString* error) const;

    /// Gives the disk space of a part back, where the file system can do that. The part isn't read
    /// again.
    void discard(qint64 place, qint64 size);

    const QString& folder() const { return folder_; }

private:
    bool open(QString* error);

    QString contents_;
    QString folder_;
    int file_ = -1;
};

} // namespace velmorra
