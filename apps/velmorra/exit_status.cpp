// Outcomes, and the ways in which a command without a run ends.
#include "exit_status.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

ExitStatus exitStatusOf(velmorra::RunOutcome outcome) {
    switch (outcome) {
    case velmorra::RunOutcome::Done:
        return ExitStatus::Done;
    case velmorra::RunOutcome::Cancelled:
        return ExitStatus::Cancelled;
    case velmorra::RunOutcome::Failed:
        break;
    }
    return ExitStatus::RunFailed;
}

ExitStatus wrongUsage(const QString& text) {
    std::fprintf(stderr, "velmorra: %s\n", text.toUtf8().constData());
    return ExitStatus::WrongUsage;
}

ExitStatus notLoadable(const QString& text) {
    std::fprintf(stderr, "[1] %s\n", text.toUtf8().constData());
    return ExitStatus::NotLoadable;
}

ExitStatus writeAnswer(const QByteArray& text) {
    std::fwrite(text.constData(), 1, static_cast<size_t>(text.size()), stdout);
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return ExitStatus::Done;
    // A reader that has seen enough (`velmorra actions | head`) needs no word about it.
    if (errno != EPIPE)
        std::fprintf(stderr, "velmorra: standard output: %s\n", std::strerror(errno));
    return ExitStatus::RunFailed;
}
