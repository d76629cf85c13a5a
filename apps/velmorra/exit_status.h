/// What the program's exit status says.
#pragma once

#include "engine/run.h"

enum class ExitStatus {
    Done = 0,
    RunFailed = 1,
    WrongUsage = 2,
    NotLoadable = 3, ///< a graph or an element that can't be loaded
    Cancelled = 130,
};

ExitStatus exitStatusOf(velmorra::RunOutcome outcome);

/// Ends the command for wrong usage: "velmorra: <text>" on standard error.
ExitStatus wrongUsage(const QString& text);

/// Ends the command because the Actions can't be loaded, with a message.
ExitStatus notLoadable(const QString& text);

/// Writes a command's answer to standard output.
ExitStatus writeAnswer(const QByteArray& text);
