/// How far a run is, for a person and for a program.
#pragma once

#include "engine/run.h"

#include <QtCore/QStringList>

struct Progress {
    double seconds = 0; ///< since the run began
    double share = -1;  ///< of all sources, from 0 to 1; negative when unknown
    std::vector<velmorra::SinkProgress> sinks;
};

/// All sinks in one: "1,250,000 rows, 480,000 rows/s, 45 %, 3 s left".
QString progressText(const Progress& progress);

/// A line for each sink, with its box where there are several. At most `mostLines` lines of at most
/// `width` characters, so that none of them wraps.
QStringList progressLines(const Progress& progress, int width, int mostLines);

/// {"rows":1250000,"rowsPerSecond":480000,"share":0.450,"secondsLeft":3,"sinks":[{"box":"3",
/// "action":"WriteCsv","rows":1250000,...}]}; share and secondsLeft are left out where they aren't
/// known.
QByteArray progressJson(const Progress& progress);
