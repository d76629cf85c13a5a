/// How far a run is, in one line.
#pragma once

#include <QtCore/QString>

struct Progress {
    qint64 rows = 0; ///< rows of all sinks
    double seconds = 0;
    double share = -1; ///< of the sources, from 0 to 1; negative when unknown
};

/// "1,250,000 rows, 480,000 rows/s, 45 %"
QString progressText(const Progress& progress);

/// {"rows":1250000,"rowsPerSecond":480000,"share":0.45}, without a share that isn't known.
QByteArray progressJson(const Progress& progress);
