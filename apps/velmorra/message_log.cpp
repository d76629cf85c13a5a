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
        // There may be no graph yet in which the box could be looked up: its title is in the text.
        const int level = problem.isError ? 1 : 2;
        if (format_ == LogFormat::Json)
            take({level, problem.ownText(), problem.boxId, problem.boxName});
        else
            take({level, problem.text, {}, {}});
        hasError |= problem.isError;
    }
    return hasError;
}

void MessageLog::showProgress(const QStringList& lines) {
    const std::lock_guard lock(mutex_);
    if (lines.isEmpty() && progress_.isEmpty())
        return;
    const QByteArray erasure = progress_.isEmpty() ? eraseLine : erasure_;
    progress_ = lines.join(u'\n').toUtf8();
    erasure_ =
        lines.size() < 2 ? eraseLine : "\r\x1b[" + QByteArray::number(lines.size() - 1) + "A\x1b[J";
    writeError(erasure + progress_);
}

void MessageLog::abandonProgress() {
    const std::unique_lock lock(mutex_, std::try_to_lock);
    if (lock.owns_lock() && !progress_.isEmpty())
        writeError(erasure_);
}

void MessageLog::writeLine(const QByteArray& line) {
    const std::lock_guard lock(mutex_);
    if (progress_.isEmpty())
        writeError(line + '\n');
    else
        writeError(erasure_ + line + '\n' + progress_);
}

const ActionItem* MessageLog::boxOf(const Message& message) const {
    const int place = graph_ == nullptr ? -1 : graph_->indexOfBox(message.boxId);
    return place < 0 ? nullptr : graph_->boxes()[static_cast<size_t>(place)].get();
}

QByteArray MessageLog::boxTitleOf(const Message& message) const {
    if (const ActionItem* const box = boxOf(message))
        return velmorra::boxTitle(*box).toUtf8();
    return "box " + message.boxId.toUtf8() + " (" + message.boxName.toUtf8() + ')';
}

QByteArray MessageLog::jsonOf(const Message& message, const QString& text) const {
    QByteArray json = R"({"level":)" + QByteArray::number(message.level) + R"(,"box":)" +
                      jsonText(message.boxId) + R"(,"action":)" + jsonText(message.boxName);
    const ActionItem* const box = boxOf(message);
    if (box != nullptr && !box->label.isEmpty())
        json += R"(,"label":)" + jsonText(box->label);
    return json + R"(,"text":)" + jsonText(text) + '}';
}

QByteArray MessageLog::formatted(const Message& message) const {
    QString text = message.text;
    if (text.endsWith(u'\n'))
        text.chop(1);
    if (format_ == LogFormat::Json)
        return jsonOf(message, text);
    QByteArray line = '[' + QByteArray::number(message.level) + "] ";
    if (!message.boxId.isEmpty() || !message.boxName.isEmpty())
        line += boxTitleOf(message) + ": ";
    return line + text.toUtf8();
}
