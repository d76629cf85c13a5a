/// One message of a run, from where a problem is found to where it is shown.
#pragma once

#include "host/export.h"

#include <QtCore/QString>

/// Levels: 1 fatal error, 2 warning, 3 repeatable warning whose count the Action limits, 4
/// technical notice.
struct Message {
    int level = 1;
    QString text;    ///< as the Action wrote it, a trailing line feed included
    QString boxId;   ///< empty when the message belongs to no box
    QString boxName; ///< the Action's name
};

/// Takes the messages of a run. Called on the thread that runs the box; a run may use several.
class VELMORRA_CORE MessageSink {
public:
    virtual ~MessageSink() = default;
    virtual void take(const Message& message) = 0;
};

class ActionItem;

/// What the current thread is running: set by the engine, read by MainUI::addLog.
struct RunContext {
    MessageSink* sink = nullptr;
    ActionItem* box = nullptr; ///< the box whose code runs now; may be null
};

/// Makes a context the current one of this thread for as long as the scope lives. Not copyable; the
/// context must outlive it.
class VELMORRA_CORE RunContextScope {
public:
    explicit RunContextScope(RunContext* context);
    ~RunContextScope();
    RunContextScope(const RunContextScope&) = delete;
    RunContextScope& operator=(const RunContextScope&) = delete;

    /// The current context of this thread, or null.
    static RunContext* current();

private:
    RunContext* outer_;
};
