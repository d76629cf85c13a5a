/// Reading the bytes of a file, a pipe, a device or standard input.
#pragma once

#include <QtCore/QString>

#include <atomic>
#include <functional>

namespace velmorra {

/// Asked a few times a second by whoever waits for bytes: true ends the wait.
using StopCheck = std::function<bool()>;

/// One thread at a time reads; `share` may be asked from another.
class InputFile {
public:
    InputFile() = default;
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    /// Opens a path, or standard input for `-`. False with an error text when it can't be read.
    bool open(const QString& path, StopCheck stop);

    /// Up to `room` bytes: their number, 0 at the end, -1 with an error text on failure, or with
    /// none when the wait was stopped. A pipe gives what is there.
    qint64 read(uchar* bytes, qint64 room);
    void close();

    /// "cannot read 'x.csv': No such file or directory"; null when nothing went wrong.
    const QString& error() const { return error_; }

    /// The path for messages: "standard input" for `-`.
    const QString& shownName() const { return shownName_; }

    /// Whether all bytes are there to be read without waiting.
    bool isRegular() const { return regular_; }

    /// How much has been read, from 0 to 1; negative when the size is unknown.
    double share() const;

private:
    bool waitForBytes();
    bool failed(const QString& reason);

    int file_ = -1;
    bool regular_ = false;
    std::atomic<qint64> size_{-1};
    std::atomic<qint64> read_{0};
    QString shownName_;
    QString error_;
    StopCheck stop_;
};

/// What the system says about an `errno`, in English.
QString systemErrorText(int errorNumber);

} // namespace velmorra
