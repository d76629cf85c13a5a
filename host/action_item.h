/// ActionItem: the base class of every box of a graph, and the contract of a run.
///
/// Order of a run: `rewindRun`, `beforeRun`, then `runStep` again and again until it returns true,
/// then `afterRun`, which comes at the end of the run of the whole graph, always comes, also after
/// a refusal or a failure, and leaves the instance ready for the next run. One thread at a time
/// runs these of one instance.
///
/// A step reads rows with getNextRowFromInPin, fills the row object of an output pin, and hands it
/// on with setRowReadyForOutput: at most one row per pin and step. It returns true when the Action
/// has finished, false to be called again; it may return false without having handed on a row. A
/// row handed on by a step that returns true is delivered.
///
/// A row of an input pin is valid until the next call for that pin. The row object of an output pin
/// is the same at every step and what was set on it stays; its cell pointers must be valid until
/// the next step. It is fresh at `rewindRun`.
///
/// A fatal error: log at level 1, set `runStatus` to 5 and `actionFailed` to 1 (`fail` does all
/// three), return true. When `runStatus` isn't 2 every pin is at its end.
#pragma once

#include "host/global_parameters.h"
#include "host/parallel_group.h"
#include "host/pins.h"
#include "host/stored_element.h"

class QPixmap;
class QWidget;
class UpdateClassWidget;

class VELMORRA_CORE ActionItem {
public:
    using Step = bool (*)(ActionItem*);

    // The operations, in the order of their table.

    /// The Action's name, which is also the name of its stored element.
    virtual const char* actionName() const = 0;

    /// A new property form, owned by `parent`; null when there is none.
    virtual UpdateClassWidget* createPropertyForm(QWidget* parent);

    /// The icon at a size in pixels, kept by the Action's class; null when there is none.
    virtual QPixmap* actionIcon(double size);

    /// Add or remove a pin, where `pinsEditable` allows it.
    virtual void addPinIn();
    virtual void addPinOut();
    virtual void removePinIn();
    virtual void removePinOut();

    virtual QString actionDescription() const = 0;
    virtual void showActionHelp();

    /// Endings of the files that the Action reads, for opening one by dropping it on a graph.
    virtual QStringList getFileTypes() const;
    virtual QStringList actionCategories() const = 0;
    virtual QStringList actionKeywords() const = 0;

    /// Older names under which stored graphs still load.
    virtual QStringList getAlternativeNames() const;

    /// A new instance with the same settings, owned by the caller; null if allocation fails, or
    /// with a message when a setting can't be stored.
    virtual ActionItem* clone(GlobalParameters* parameters) const;

    /// Writes the stored element, with `text` (indentation) in front. The stream fails where a
    /// setting holds a character that XML can't hold; `toXMLStringTool().refused()` says which.
    virtual void saveToXML(XMLStream& stream, const QString& text) const;

    /// Resets what the previous run left. True refuses the run, with a message logged.
    virtual bool beforeRun();

    /// Releases what the run allocated.
    virtual bool afterRun();

    /// Stores the first-row step in `runStep`.
    virtual void rewindRun() = 0;
    virtual void wakeAll();

    /// How much of the Action's input has been read, from 0 to 1.
    virtual float computeCompletion();
    virtual bool completionIn2Pass() const;

    /// Whether the Action may run as a master and copies, each on a part of pin 0: a part that
    /// holds whole partitions of `partitionColumn` where that isn't empty. Returns 0.
    virtual char canRunInParallel(const QString& partitionColumn, bool* answer);

    /// Whether all rows of the pin are needed before the output columns are known. Returns 0.
    virtual char fullTableRequiredToComputeMetas(int pin, bool* answer);

    /// Result files that an Action keeps on disk: none here.
    virtual QString getHDFile(int pin, bool create);
    virtual quint64 getHDTime() const;
    virtual void clearHDFile();

    virtual ~ActionItem();

    /// A new instance of the same class from a stored element, owned by the caller; null if
    /// allocation fails. `parameters` must outlive it.
    virtual ActionItem* newFromXML(XMLNode element, GlobalParameters* parameters) const = 0;

    // Beyond the table.

    /// What the Action stores. The base class reads and writes the element by it.
    virtual const StoredElement& storedElement() const = 0;

    /// What `fullTableRequiredToComputeMetas` says, as a value.
    bool needsFullTable(int pin);

    // Members that Actions touch.

    qint32 nPinIn = 1;
    qint32 nPinOut = 1;
    bool pinsEditable = false;
    bool hasWarning = false;   ///< a warning was logged and the Action goes on
    bool actionFailed = false; ///< set on a fatal error
    qint32 stepBudget = 0;     ///< stored by Actions that drain a pin in one step; not read
    ParallelGroup* parallelGroup = nullptr;       ///< not owned; never null in a run
    GlobalParameters* globalParameters = nullptr; ///< not owned; null in a prototype
    Step runStep = nullptr;

    // What the graph stores with the box.

    QString boxId;
    QString label;
    QString comment;
    QString x, y; ///< place in the drawing, as stored

    // Run services.

    /// The next row of an input pin, or null when it is exhausted.
    const OneRow* getNextRowFromInPin(int pin) {
        InPin& in = *inPins_[pin];
        return in.current = in.fetch(in);
    }

    /// The row that an input pin stands on, without moving on; null if there is none.
    const OneRow* getCurRowFromInPin(int pin) const { return inPins_[pin]->current; }

    /// The columns of an input pin's table, also when it has no rows; null when unknown. To be
    /// asked behind the first row, or when the pin has ended.
    const PinOutMetaData* columnsOfInPin(int pin) {
        InPin& in = *inPins_[pin];
        return in.columnsOf(in);
    }

    OneRow* getOutputRowForOutputPin(int pin) { return &outPins_[pin].row; }
    void setRowReadyForOutput(int pin) { outPins_[pin].ready = true; }

    /// False when only the output columns are wanted: the Action then sets them from what it has,
    /// hands on a row if it has one, and finishes without reading further.
    bool mustComputeFull() const { return computeFull_; }

    QString expandString(const QString& text) const;
    QString expandFile(const QString& file) const;

    /// Gives a parallel copy the output metadata of its master.
    void copyMetaFromMasterAction();

    bool isParallelCopy() const { return parallelGroup->masterAction != nullptr; }
    bool isRunning() const { return globalParameters->runStatus == RunStatus::Running; }

    /// Reports a fatal error. Always true, so that a step or `beforeRun` can return it.
    bool fail(const QString& text);

    /// For the engine: the wires of a run (`inPins[nPinIn]`, `outPins[nPinOut]`, not owned) and
    /// whether rows are wanted.
    void connectPins(InPin* const* inPins, OutPin* outPins, bool computeFull);

protected:
    /// Reads what the graph stores with the box. A derived constructor then calls readStored.
    ActionItem(const XMLNode& element, GlobalParameters* parameters);
    ActionItem(const ActionItem&) = delete;
    ActionItem& operator=(const ActionItem&) = delete;

    /// Reads the declared members, and keeps attributes and children that nobody declared for
    /// saving.
    void readStored(const StoredElement& declaration);

    /// Opens the element: `text`, "<", the name, and what the graph stores with the box.
    void saveAI(XMLStream& stream, const QString& text, double version) const;

    /// Makes a member function the current step.
    template <auto StepFunction>
    void setStep() {
        runStep = [](ActionItem* action) -> bool {
            return (static_cast<ClassOf<StepFunction>*>(action)->*StepFunction)();
        };
    }

private:
    friend VELMORRA_CORE float completionIsSumOfAllCompletions(ActionItem* action);

    template <class Class>
    static std::type_identity<Class> stepClass(bool (Class::*)());
    template <auto StepFunction>
    using ClassOf = typename decltype(stepClass(StepFunction))::type;

    XMLNode element_; ///< what the Action was made from
    QVector<std::pair<QString, QString>> unknownAttributes_;
    QStringList unknownChildren_;
    InPin* const* inPins_ = nullptr;
    OutPin* outPins_ = nullptr;
    bool computeFull_ = true;
};

/// The completion of an Action that reads all of its input pins: those of the sources upstream,
/// each counted once, summed up and brought to a share from 0 to 1. 0 outside of a run. The pins'
/// wires must not change meanwhile.
VELMORRA_CORE float completionIsSumOfAllCompletions(ActionItem* action);

/// Attributes that the graph stores with every box.
VELMORRA_CORE const QStringList& boxAttributes();
