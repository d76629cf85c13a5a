// Rates are given in three digits at most: more would only flicker.
#include "progress_text.h"

#include "json_text.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace {

/// What is shown of one sink, or of all together.
struct Measured {
    qint64 rows = 0;
    double seconds = 0;
    double share = -1;
};

QString grouped(qint64 number) {
    QString text = QString::number(number);
    for (qsizetype i = text.size() - 3; i > 0; i -= 3)
        text.insert(i, u',');
    return text;
}

qint64 rowsPerSecond(const Measured& measured) {
    if (measured.seconds <= 0)
        return 0;
    const double rate = static_cast<double>(measured.rows) / measured.seconds;
    if (rate < 1000)
        return std::llround(rate);
    const double unit = std::pow(10, std::floor(std::log10(rate)) - 2);
    return std::llround(std::round(rate / unit) * unit);
}

/// What is left if it goes on as it went; nothing before that means anything.
std::optional<qint64> secondsLeft(const Measured& measured) {
    constexpr double least = 0.005;
    if (measured.share < least || measured.share >= 1 || measured.seconds < 0.5)
        return std::nullopt;
    return std::llround(std::ceil(measured.seconds * (1 - measured.share) / measured.share));
}

QString timeText(qint64 seconds) {
    constexpr qint64 minute = 60;
    constexpr qint64 hour = 60 * minute;
    if (seconds < 2 * minute)
        return QStringLiteral("%1 s").arg(seconds);
    if (seconds < 2 * hour)
        return QStringLiteral("%1 min").arg((seconds + minute / 2) / minute);
    return QStringLiteral("%1 h").arg((seconds + hour / 2) / hour);
}

QString textOf(const Measured& measured) {
    QString text = grouped(measured.rows) + QLatin1String(" rows, ") +
                   grouped(rowsPerSecond(measured)) + QLatin1String(" rows/s");
    if (measured.share >= 0)
        text += QStringLiteral(", %1 %").arg(std::floor(std::min(measured.share, 1.0) * 100));
    if (const auto left = secondsLeft(measured))
        text += QLatin1String(", ") + timeText(*left) + QLatin1String(" left");
    return text;
}

QByteArray jsonOf(const Measured& measured) {
    QByteArray text = R"("rows":)" + QByteArray::number(measured.rows) + R"(,"rowsPerSecond":)" +
                      QByteArray::number(rowsPerSecond(measured));
    if (measured.share >= 0)
        text += R"(,"share":)" + QByteArray::number(std::min(measured.share, 1.0), 'f', 3);
    if (const auto left = secondsLeft(measured))
        text += R"(,"secondsLeft":)" + QByteArray::number(*left);
    return text;
}

Measured allOf(const Progress& progress) {
    Measured all{0, progress.seconds, progress.share};
    for (const velmorra::SinkProgress& sink : progress.sinks)
        all.rows += sink.rows;
    return all;
}

Measured measuredOf(const Progress& progress, const velmorra::SinkProgress& sink) {
    return {sink.rows, progress.seconds, sink.share};
}

QString cut(const QString& text, int width) {
    return text.size() <= width ? text : text.left(std::max(width - 1, 0)) + QStringLiteral("…");
}

} // namespace

QString progressText(const Progress& progress) {
    return textOf(allOf(progress));
}

QStringList progressLines(const Progress& progress, int width, int mostLines) {
    const auto& sinks = progress.sinks;
    if (sinks.size() < 2 || mostLines < 2)
        return {cut(progressText(progress), width)};
    const auto most = static_cast<size_t>(mostLines);
    const size_t shown = sinks.size() <= most ? sinks.size() : most - 1;
    QStringList lines;
    for (size_t i = 0; i < shown; ++i)
        lines += cut(sinks[i].title + QLatin1String(": ") + textOf(measuredOf(progress, sinks[i])),
                     width);
    if (shown < sinks.size())
        lines += cut(QStringLiteral("and %1 more; all: ").arg(sinks.size() - shown) +
                         progressText(progress),
                     width);
    return lines;
}

QByteArray progressJson(const Progress& progress) {
    QByteArrayList sinks;
    for (const velmorra::SinkProgress& sink : progress.sinks)
        sinks += R"({"box":)" + jsonText(sink.boxId) + R"(,"action":)" + jsonText(sink.boxName) +
                 ',' + jsonOf(measuredOf(progress, sink)) + '}';
    return '{' + jsonOf(allOf(progress)) + R"(,"sinks":[)" + sinks.join(',') + "]}";
}
