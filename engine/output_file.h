/// A file that appears whole or not at all.
///
/// A regular file is written under a temporary name in the folder of the target, and renamed on
/// commit; what stood there before keeps its place until then, and its mode afterwards. A symbolic
/// link stays and its end is replaced. Pipes, devices and standard output (`-`) are written
/// directly. Whatever is in the file has gone to the system, not necessarily to the disk.
#pragma once

#include "engine/input_file.h"

#include <QtCore/QByteArray>

#include <mutex>

namespace velmorra {

/// One thread at a time, but for `discard`.
class OutputFile {
public:
    OutputFile() = default;
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Makes the temporary file, or opens what is written directly. Waits for the reader of a named
    /// pipe. False with an error text, or without one when the wait was stopped.
    bool open(const QString& path, StopCheck stop);

    /// False when the bytes could not be written or the wait for room was stopped. Once the reader
    /// of a pipe has gone, what is written is dropped.
    bool write(const char* bytes, qint64 size);

    /// Whether the reader of a pipe has gone: it has enough, which is no failure.
    bool readerGone() const { return readerGone_; }

    /// Closes the file; nothing can be written from here on.
    bool finish();

    /// Puts the finished file in its place.
    bool commit();

    /// Removes the temporary file. May be called at any time, more than once, and from another
    /// thread; what is written afterwards is lost.
    void discard();

    /// "cannot write 'x.csv': No space left on device", of the first failure; null when there is
    /// none.
    const QString& error() const { return error_; }

private:
    bool openBeside(const QString& path);
    bool openDirectly(const QString& path);
    bool makeTemporary();
    bool reopenPipe();
    bool waitForRoom();
    bool handleWriteError(int errorNumber);
    bool failed(int errorNumber, const QString& what = {});

    int file_ = -1;
    bool owned_ = true;  ///< closed by this object
    bool waits_ = false; ///< writing may block: ask for room first
    qint64 chunk_ = 0;   ///< bytes that can be written without blocking when there is room
    bool readerGone_ = false;
    QString shownName_;
    QString error_;
    StopCheck stop_;
    QByteArray target_; ///< empty when written directly
    unsigned mode_ = 0; ///< of the file that is replaced; 0 when there is none

    std::mutex temporaryLock_; ///< guards temporary_, and the file of that name
    QByteArray temporary_;
};

} // namespace velmorra
