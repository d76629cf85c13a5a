/// Messages and the progress line on standard error.
#pragma once

#include "engine/graph.h"
#include "host/message.h"

#include <mutex>

enum class LogFormat { Text, Json };

/// Writes each message as one text, `[1] box 3 (Join): ERROR: ...`, or as one line of JSON. Lines
/// of progress stand below the messages and are redrawn in place. Callable from any thread.
class MessageLog : public MessageSink {
public:
    void setFormat(LogFormat format) { format_ = format; }

    /// The graph whose boxes' labels are shown; not owned, not changed while messages come.
    void setGraph(const velmorra::Graph* graph) { graph_ = graph; }

    void take(const Message& message) override;

    /// What is wrong with a graph or an element, as messages. True when there was an error.
    bool takeProblems(const QVector<velmorra::GraphProblem>& problems);

    /// Draws the lines over the earlier ones; without lines removes these. None may be wider than
    /// the terminal.
    void showProgress(const QStringList& lines);

    /// Removes the lines of progress unless another thread is writing, for a program that is about
    /// to end without waiting.
    void abandonProgress();

    /// Writes a line that stays.
    void writeLine(const QByteArray& line);

private:
    const ActionItem* boxOf(const Message& message) const;
    QByteArray jsonOf(const Message& message, const QString& text) const;
    QByteArray boxTitleOf(const Message& message) const;
    QByteArray formatted(const Message& message) const;

    std::mutex mutex_;
    LogFormat format_ = LogFormat::Text;
    const velmorra::Graph* graph_ = nullptr;
    QByteArray progress_; ///< what is drawn now
    QByteArray erasure_;  ///< what takes it off again
};
