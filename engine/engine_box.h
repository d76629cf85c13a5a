/// The engine's own boxes: Actions that bring tables in and out of a run.
#pragma once

#include "host/action_item.h"

namespace velmorra {

struct RunOptions;
class SideThreads;

/// What the catalogue says about a box of the engine.
struct BoxEntry {
    const char* name;
    const char* description;
    QStringList keywords;
};

/// A box that a plug-in doesn't bring. All of them are in the category "050_Tables".
class EngineBox : public ActionItem {
public:
    const char* actionName() const override { return entry().name; }
    QString actionDescription() const override { return QLatin1String(entry().description); }
    QStringList actionCategories() const override { return {QStringLiteral("050_Tables")}; }
    QStringList actionKeywords() const override { return entry().keywords; }
    virtual const BoxEntry& entry() const = 0;

    /// Options of the run that the box belongs to, set before `rewindRun`; not owned.
    const RunOptions* runOptions = nullptr;

    /// Threads that the box may use beside the run's own; null: none. Not owned, set likewise.
    SideThreads* sideThreads = nullptr;

protected:
    using ActionItem::ActionItem;
};

/// What a box is that writes something that must appear whole or not at all. The engine calls, when
/// the run of the whole graph has succeeded, finishOutput of every such box, and if none failed
/// commitOutput of every one; else discardOutput. afterRun comes behind these.
class OutputKeeper {
public:
    virtual ~OutputKeeper() = default;

    /// Everything is written and flushed to the file. False with a message logged when it isn't.
    virtual bool finishOutput() = 0;

    /// Puts the output in its place. False with a message logged when that failed.
    virtual bool commitOutput() = 0;

    /// Leaves no trace; the earlier output stays as it was. May be called more than once, and from
    /// another thread while the run goes on.
    virtual void discardOutput() = 0;

    // For what is written behind the run, in blocks that are numbered through all outputs.

    /// Waits until everything that was handed over is written; the number of the first block that
    /// couldn't be, or 0.
    virtual quint64 settle() { return 0; }

    /// Reports why, as a fatal error.
    virtual void reportFailedWrite() {}
};

/// A box that writes a table.
class OutputBox : public EngineBox, public OutputKeeper {
public:
    /// Rows written so far; callable from another thread.
    virtual qint64 rowsWritten() const = 0;

protected:
    using EngineBox::EngineBox;
};

/// A box whose table comes from outside.
class SourceBox : public EngineBox {
public:
    /// How much has been read, from 0 to 1; negative when unknown. Callable from another thread.
    virtual double readShare() const = 0;

protected:
    using EngineBox::EngineBox;
};

} // namespace velmorra
