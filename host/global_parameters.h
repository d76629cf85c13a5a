/// The parameters of a graph, and the state of its run.
#pragma once

#include "host/export.h"

#include <QtCore/QString>
#include <QtCore/QVector>

#include <atomic>
#include <utility>

/// A 32-bit state that one thread sets and others watch; loads and stores are relaxed.
class RunStatus {
public:
    enum : qint32 { Running = 2, Cancelled = 3, Failed = 5 };

    operator qint32() const { return value_.load(std::memory_order_relaxed); }
    RunStatus& operator=(qint32 value) {
        value_.store(value, std::memory_order_relaxed);
        return *this;
    }

    /// Goes from running to `value`; a run that has already ended otherwise stays as it is.
    void endAs(qint32 value) {
        qint32 running = Running;
        value_.compare_exchange_strong(running, value, std::memory_order_relaxed);
    }

private:
    std::atomic<qint32> value_{Running};
};

class VELMORRA_CORE GlobalParameters {
public:
    /// 2 while a run goes on, 5 when it has failed, 3 when it was cancelled. Any value other than 2
    /// tells a loop that reads rows to stop.
    RunStatus runStatus;

    /// Format version of the graph file; what carries none counts as the current one.
    double fileVersion = currentFileVersion;
    static constexpr double currentFileVersion = 4.2;

    GlobalParameters() = default;
    GlobalParameters& operator=(const GlobalParameters&) = delete;

    /// The same parameters and folder, for a run of its own: the state of the run is not copied.
    GlobalParameters(const GlobalParameters& other);

    /// Parameters keep the order in which they were first set.
    void set(const QString& name, const QString& value);
    /// The value of a parameter, valid until the next `set`; null when there is none of that name.
    const QString* find(QStringView name) const;
    const QVector<std::pair<QString, QString>>& parameters() const { return parameters_; }

    /// Folder of the graph file, for which `:/` stands in file names. Empty: the current folder.
    QString graphFolder() const { return graphFolder_; }
    void setGraphFolder(const QString& folder) { graphFolder_ = folder; }

    /// Replaces each `${name}` of a known parameter and leaves the rest as it stands. Replaced text
    /// is not searched again. A null string stays null.
    QString expandString(const QString& text) const;

    /// expandString, and a leading `:/` becomes the folder of the graph file.
    QString expandFile(const QString& file) const;

    /// The reverse of the folder rule of expandFile: a file below the graph's folder gets a leading
    /// `:/`; any other stays as it is.
    QString contractFile(const QString& file) const;

private:
    QVector<std::pair<QString, QString>> parameters_;
    QString graphFolder_;
};
