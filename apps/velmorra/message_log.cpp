// One write per message, so that messages of several threads or programs don't mix.
#include "message_log.h"

#include "json_text.h"

#include <cstdio>

namespace {

const QByteArray eraseLine = "\r\x1b[K";

void writeError(const QByteArray& bytes) {
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stderr);
    std::fflush(stderr);
}

} // namespace

void MessageLog::take(const Message& message) {
    writeLine(formatted(message));
}

bool MessageLog::takeProblems(const QVector<velmorra::GraphProblem>& problems) {
    bool hasError = false;
    for (const velmorra::GraphProblem& problem : problems) {
        take({problem.isError ? 1 : 2, problem.text, {}, {}});
        hasError |= problem.isError;
    }
    return hasError;
}

void MessageLog::showProgress(const QString& line) {
    const std::lock_guard lock(mutex_);
    const QByteArray drawn = line.toUtf8();
    if (drawn.isEmpty() && progress_.isEmpty())
        return;
    progress_ = drawn;
    writeError(eraseLine + progress_);
}

void MessageLog::abandonProgress() {
    const std::unique_lock lock(mutex_, std::try_to_lock);
    if (lock.owns_lock() && !progress_.isEmpty())
        writeError(eraseLine);
}

void MessageLog::writeLine(const QByteArray& line) {
    const std::lock_guard lock(mutex_);
    if (progress_.isEmpty())
        writeError(line + '\n');
    else
        writeError(eraseLine + line + '\n' + progress_);
}

QByteArray MessageLog::boxTitleOf(const Message& message) const {
    const int place = graph_ == nullptr ? -1 : graph_->indexOfBox(message.boxId);
    if (place >= 0)
        return velmorra::boxTitle(*graph_->boxes()[static_cast<size_t>(place)]).toUtf8();
    return "box " + message.boxId.toUtf8() + " (" + message.boxName.toUtf8() + ')';
}

QByteArray MessageLog::formatted(const Message& message) const {
    QString text = message.text;
    if (text.endsWith(u'\n'))
        text.chop(1);
    const QByteArray level = QByteArray::number(message.level);
    if (format_ == LogFormat::Json)
        return R"({"level":)" + level + R"(,"box":)" + jsonText(message.boxId) + R"(,"action":)" +
               jsonText(message.boxName) + R"(,"text":)" + jsonText(text) + '}';
    QByteArray line = '[' + level + "] ";
    if (!message.boxId.isEmpty() || !message.boxName.isEmpty())
        line += boxTitleOf(message) + ": ";
    return line + text.toUtf8();
}
