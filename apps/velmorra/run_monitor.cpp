// The main thread watches while a thread of its own runs the graph. Stop signals are blocked in
// every thread and read from a descriptor, so that no handler runs in the middle of anything.
#include "run_monitor.h"

#include "progress_text.h"

#include <csignal>
#include <thread>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// Time a cancelled run has to end by itself: the program must be gone 200 ms after the signal.
constexpr milliseconds patience{120};

constexpr milliseconds redrawPeriod{250};
constexpr milliseconds linePeriod{1000};

/// Signals that ask the program to end, but for those that it was started to ignore. They must be
/// blocked before the first thread starts.
class StopSignals {
public:
    StopSignals() {
        sigset_t set;
        sigemptyset(&set);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
            struct sigaction action = {};
            sigaction(signal, nullptr, &action);
            if (action.sa_handler != SIG_IGN)
                sigaddset(&set, signal);
        }
        pthread_sigmask(SIG_BLOCK, &set, nullptr);
        descriptor_ = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    }
    ~StopSignals() { close(descriptor_); }
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    int descriptor() const { return descriptor_; }

    /// Whether a signal came since the last call.
    bool take() {
        signalfd_siginfo info;
        return read(descriptor_, &info, sizeof info) == sizeof info;
    }

private:
    int descriptor_;
};

/// Set once by one thread, waited for by another.
class EndedEvent {
public:
    EndedEvent() : descriptor_(eventfd(0, EFD_CLOEXEC)) {}
    ~EndedEvent() { close(descriptor_); }
    EndedEvent(const EndedEvent&) = delete;
    EndedEvent& operator=(const EndedEvent&) = delete;

    int descriptor() const { return descriptor_; }
    void set() { eventfd_write(descriptor_, 1); }

private:
    int descriptor_;
};

/// The lines that fit on the terminal now: a line that wraps couldn't be erased again.
QStringList drawnLines(const Progress& progress) {
    constexpr int mostLines = 8;
    winsize size = {};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0)
        size = {24, 80, 0, 0};
    return progressLines(progress, size.ws_col - 1, std::min<int>(mostLines, size.ws_row - 1));
}

class RunMonitor {
public:
    RunMonitor(velmorra::Graph& graph, MessageLog& log, const RunSettings& settings)
        : run_(graph, log, settings.runOptions),
          log_(log),
          isTerminal_(isatty(STDERR_FILENO) == 1),
          draws_(settings.progress == ProgressMode::Always ||
                 (settings.progress == ProgressMode::Auto && isTerminal_ &&
                  settings.logFormat == LogFormat::Text)),
          isJson_(settings.logFormat == LogFormat::Json),
          period_(isTerminal_ && !isJson_ ? redrawPeriod : linePeriod) {}

    velmorra::RunOutcome execute();

private:
    void watch();
    int pollTimeout() const;
    void draw();
    [[noreturn]] void endAtOnce();

    StopSignals stopSignals_; // before the run, which may start threads
    EndedEvent ended_;
    velmorra::Run run_;
    MessageLog& log_;
    const bool isTerminal_;
    const bool draws_;
    const bool isJson_;
    const milliseconds period_;
    const Clock::time_point start_ = Clock::now();
    Clock::time_point nextDraw_ = start_ + period_;
    std::optional<Clock::time_point> giveUp_; ///< set when the run was told to end
};

velmorra::RunOutcome RunMonitor::execute() {
    velmorra::RunOutcome outcome = velmorra::RunOutcome::Failed;
    std::thread runner([&] {
        outcome = run_.execute();
        ended_.set();
    });
    watch();
    runner.join();
    if (draws_) {
        if (!isTerminal_ || isJson_)
            draw();
        log_.showProgress({});
    }
    return outcome;
}

void RunMonitor::watch() {
    pollfd waited[] = {{stopSignals_.descriptor(), POLLIN, 0}, {ended_.descriptor(), POLLIN, 0}};
    while (true) {
        poll(waited, std::size(waited), pollTimeout());
        if ((waited[1].revents & POLLIN) != 0)
            return;
        if (stopSignals_.take() && !giveUp_) {
            giveUp_ = Clock::now() + patience;
            run_.cancel();
        }
        if (giveUp_ && Clock::now() >= *giveUp_)
            endAtOnce();
        if (draws_ && !giveUp_ && Clock::now() >= nextDraw_) {
            draw();
            nextDraw_ = Clock::now() + period_;
        }
    }
}

int RunMonitor::pollTimeout() const {
    if (!giveUp_ && !draws_)
        return -1;
    const auto left = giveUp_.value_or(nextDraw_) - Clock::now();
    return std::max(0, static_cast<int>(std::chrono::ceil<milliseconds>(left).count()));
}

void RunMonitor::draw() {
    Progress progress;
    progress.seconds = std::chrono::duration<double>(Clock::now() - start_).count();
    progress.share = run_.completion();
    progress.sinks = run_.sinks();
    if (isJson_)
        log_.writeLine(progressJson(progress));
    else if (isTerminal_)
        log_.showProgress(drawnLines(progress));
    else
        log_.writeLine(progressText(progress).toUtf8());
}

void RunMonitor::endAtOnce() {
    run_.removeTemporaryFiles();
    log_.abandonProgress();
    _exit(static_cast<int>(ExitStatus::Cancelled));
}

} // namespace

ExitStatus executeRun(velmorra::Graph& graph, MessageLog& log, const RunSettings& settings) {
    log.setGraph(&graph);
    const velmorra::RunOutcome outcome = RunMonitor(graph, log, settings).execute();
    log.setGraph(nullptr);
    return exitStatusOf(outcome);
}
