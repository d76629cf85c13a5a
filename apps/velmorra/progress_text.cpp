// Rates are given in three digits at most: more would only flicker.
#include "progress_text.h"

#include <algorithm>
#include <cmath>

namespace {

QString grouped(qint64 number) {
    QString text = QString::number(number);
    for (qsizetype i = text.size() - 3; i > 0; i -= 3)
        text.insert(i, u',');
    return text;
}

qint64 rowsPerSecond(const Progress& progress) {
    if (progress.seconds <= 0)
        return 0;
    const double rate = static_cast<double>(progress.rows) / progress.seconds;
    if (rate < 1000)
        return std::llround(rate);
    const double unit = std::pow(10, std::floor(std::log10(rate)) - 2);
    return std::llround(std::round(rate / unit) * unit);
}

} // namespace

QString progressText(const Progress& progress) {
    QString text = grouped(progress.rows) + QLatin1String(" rows, ") +
                   grouped(rowsPerSecond(progress)) + QLatin1String(" rows/s");
    if (progress.share >= 0)
        text += QStringLiteral(", %1 %").arg(std::lround(std::min(progress.share, 1.0) * 100));
    return text;
}

QByteArray progressJson(const Progress& progress) {
    QByteArray text = R"({"rows":)" + QByteArray::number(progress.rows) + R"(,"rowsPerSecond":)" +
                      QByteArray::number(rowsPerSecond(progress));
    if (progress.share >= 0)
        text += R"(,"share":)" + QByteArray::number(std::min(progress.share, 1.0), 'f', 3);
    return text + '}';
}
