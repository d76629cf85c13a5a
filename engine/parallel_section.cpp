#include "engine/parallel_section.h"

#include "host/main_ui.h"

#include <algorithm>
#include <memory>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

namespace velmorra {

namespace {

/// Which rows of pin 0 go to which worker, and to which run of equal partition values each row
/// belongs (without a partition column every row is a run of its own).
struct Deal {
    std::vector<std::vector<size_t>> rowsOf; ///< by worker, in order
    std::vector<size_t> runOfRow;
    std::vector<QString> valueOfRun; ///< empty without a partition column
};

/// The same for equal values, in every process.
size_t hashOf(const QString& value) {
    quint64 hash = value.isNull() ? 1 : 14695981039346656037ull;
    for (const QChar unit : value)
        hash = (hash ^ unit.unicode()) * 1099511628211ull;
    return static_cast<size_t>(hash ^ (hash >> 32));
}

/// Null and the empty text are two values, which Qt takes for one.
bool isSameValue(const QString& a, const QString& b) {
    return a.isNull() == b.isNull() && a == b;
}

Deal dealBatches(size_t rows, size_t workers, size_t batch) {
    Deal deal;
    deal.rowsOf.resize(workers);
    deal.runOfRow.resize(rows);
    for (size_t row = 0; row < rows; ++row) {
        deal.rowsOf[row / batch % workers].push_back(row);
        deal.runOfRow[row] = row;
    }
    return deal;
}

Deal dealPartitions(const PackedTable& table, int column, size_t workers) {
    Deal deal;
    deal.rowsOf.resize(workers);
    OneRow row;
    row.setShape(table.shape);
    size_t first = 0;
    for (size_t place = 0; place < table.rows(); ++place) {
        table.read(place, row);
        const QString value = row.colForHash(column);
        const size_t hash = hashOf(value) % workers;
        if (place == 0)
            first = hash;
        if (deal.valueOfRun.empty() || !isSameValue(deal.valueOfRun.back(), value))
            deal.valueOfRun.push_back(detach(value));
        deal.rowsOf[(hash + workers - first) % workers].push_back(place);
        deal.runOfRow.push_back(deal.valueOfRun.size() - 1);
    }
    return deal;
}

class Worker;

struct SectionPin : InPin {
    Worker* worker = nullptr;
    const PackedTable* table = nullptr; ///< null: an empty table
    PinOutMetaData shape;               ///< the worker's own copy of the columns
    OneRow row;
    size_t next = 0; ///< place among the worker's rows
};

/// Output rows of one pin, each with the run of pin 0 that it belongs to.
struct Output {
    PackedTable table;
    std::vector<size_t> runs;
    bool hasShape = false;
    int partitionColumn = -1;
};

/// The master or a copy, with its pins and what it has made.
class Worker {
public:
    Worker(ActionItem& action, const std::vector<const PackedTable*>& inputs, const Deal& deal,
           size_t place, const QString& partitionColumn)
        : outputs(static_cast<size_t>(action.nPinOut)),
          action_(action),
          deal_(deal),
          rows_(deal.rowsOf[place]),
          partitionColumn_(detach(partitionColumn)),
          inPins_(static_cast<size_t>(action.nPinIn)),
          outPins_(static_cast<size_t>(action.nPinOut)) {
        for (size_t pin = 0; pin < inPins_.size(); ++pin) {
            const PackedTable* const table = pin < inputs.size() ? inputs[pin] : nullptr;
            connect(inPins_[pin], static_cast<int>(pin), table);
            wires_.push_back(&inPins_[pin]);
        }
        action_.connectPins(wires_.data(), outPins_.data(), true);
    }

    ~Worker() { action_.connectPins(nullptr, nullptr, true); }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// False when the Action refuses the run.
    bool prepare() {
        for (OutPin& pin : outPins_)
            pin.row.makeFresh();
        action_.actionFailed = false;
        action_.hasWarning = false;
        action_.rewindRun();
        if (!action_.beforeRun())
            return true;
        action_.globalParameters->runStatus.endAs(RunStatus::Failed);
        return false;
    }

    void runSteps() {
        bool ended = !action_.isRunning();
        while (!ended && action_.isRunning()) {
            ended = action_.runStep(&action_);
            for (size_t pin = 0; pin < outPins_.size(); ++pin)
                takeRow(pin);
        }
    }

    /// Runs `part`; an exception becomes a failure of the run.
    template <class Part>
    void guarded(Part part) {
        try {
            part();
        } catch (const std::exception& error) {
            const bool memory = dynamic_cast<const std::bad_alloc*>(&error) != nullptr;
            action_.fail(memory ? QStringLiteral("not enough memory\n")
                                : QString::fromLocal8Bit(error.what()) + QLatin1Char('\n'));
        }
    }

    ActionItem& action() { return action_; }
    const OneRow& outputRow(size_t pin) const { return outPins_[pin].row; }
    bool hasReadOtherPins() const { return hasReadOtherPins_; }

    std::vector<Output> outputs; ///< by pin

private:
    void connect(SectionPin& pin, int number, const PackedTable* table) {
        pin.worker = this;
        pin.table = table;
        pin.fetch = number == 0 ? &Worker::fetchPart : &Worker::fetchWhole;
        pin.columnsOf = [](InPin& in) -> const PinOutMetaData* {
            SectionPin& self = static_cast<SectionPin&>(in);
            return self.table == nullptr ? nullptr : &self.shape;
        };
        if (table == nullptr)
            return;
        pin.shape = detached(table->shape);
        pin.row.setShape(pin.shape);
    }

    static const OneRow* fetchPart(InPin& in) {
        SectionPin& pin = static_cast<SectionPin&>(in);
        Worker& worker = *pin.worker;
        if (pin.next == worker.rows_.size() || !worker.action_.isRunning())
            return nullptr;
        worker.lastRow_ = worker.rows_[pin.next++];
        pin.table->read(worker.lastRow_, pin.row);
        return &pin.row;
    }

    static const OneRow* fetchWhole(InPin& in) {
        SectionPin& pin = static_cast<SectionPin&>(in);
        Worker& worker = *pin.worker;
        if (worker.action_.isParallelCopy()) {
            worker.hasReadOtherPins_ = true;
            return nullptr;
        }
        if (pin.table == nullptr || pin.next == pin.table->rows() || !worker.action_.isRunning())
            return nullptr;
        pin.table->read(pin.next++, pin.row);
        return &pin.row;
    }

    void takeRow(size_t pin) {
        if (!outPins_[pin].ready)
            return;
        outPins_[pin].ready = false;
        const OneRow& row = outPins_[pin].row;
        Output& output = outputs[pin];
        if (!output.hasShape) {
            output.hasShape = true;
            output.table.shape = detached(row.shape());
            if (!deal_.valueOfRun.empty())
                output.partitionColumn = row.getIndexOfColumn(partitionColumn_);
        }
        output.table.append(row);
        output.runs.push_back(runOf(row, output.partitionColumn));
    }

    /// The run of pin 0 that an output row belongs to.
    size_t runOf(const OneRow& row, int column) const {
        if (rows_.empty())
            return 0;
        const size_t last = deal_.runOfRow[lastRow_];
        if (column < 0)
            return last;
        const QString value = row.colForHash(column);
        // The worker's runs alone, from the one read last backwards.
        for (size_t place = inPins_.front().next; place-- > 0;) {
            const size_t run = deal_.runOfRow[rows_[place]];
            if (isSameValue(deal_.valueOfRun[run], value))
                return run;
        }
        return last;
    }

    ActionItem& action_;
    const Deal& deal_;
    const std::vector<size_t>& rows_;
    QString partitionColumn_;
    std::vector<SectionPin> inPins_;
    std::vector<InPin*> wires_;
    std::vector<OutPin> outPins_;
    size_t lastRow_ = 0;
    bool hasReadOtherPins_ = false;
};

/// The rows of one pin of all workers, in the order of one thread.
PackedTable merge(const std::vector<std::unique_ptr<Worker>>& workers, size_t pin) {
    struct Place {
        size_t run;
        size_t worker;
        size_t row;
    };
    PackedTable merged;
    std::vector<Place> places;
    for (size_t w = 0; w < workers.size(); ++w) {
        const Output& output = workers[w]->outputs[pin];
        if (output.hasShape && merged.shape.names.isEmpty())
            merged.shape = output.table.shape;
        for (size_t row = 0; row < output.runs.size(); ++row)
            places.push_back({output.runs[row], w, row});
    }
    if (places.empty())
        merged.shape = workers.front()->outputRow(pin).shape();
    std::stable_sort(places.begin(), places.end(),
                     [](const Place& a, const Place& b) { return a.run < b.run; });
    OneRow row;
    row.setShape(merged.shape);
    for (const Place& place : places) {
        workers[place.worker]->outputs[pin].table.read(place.row, row);
        merged.append(row);
    }
    return merged;
}

/// The copies of one run and what they share with the master.
class Section {
public:
    Section(ActionItem& master, const std::vector<const PackedTable*>& inputs, MessageSink& sink,
            const Deal& deal, const ParallelOptions& options)
        : sink_(sink),
          outerGroup_(master.parallelGroup) {
        masterGroup_.workerCount = options.copies;
        master.parallelGroup = &masterGroup_;
        addWorker(master, inputs, deal, options);
        for (int copy = 0; copy < options.copies; ++copy) {
            clones_.emplace_back(master.clone(master.globalParameters));
            if (clones_.back() == nullptr)
                throw std::bad_alloc();
            copyGroups_.push_back(std::make_unique<ParallelGroup>());
            copyGroups_.back()->workerCount = options.copies;
            copyGroups_.back()->masterAction = &master;
            clones_.back()->parallelGroup = copyGroups_.back().get();
            addWorker(*clones_.back(), inputs, deal, options);
        }
    }

    ~Section() { workers_.front()->action().parallelGroup = outerGroup_; }
    Section(const Section&) = delete;
    Section& operator=(const Section&) = delete;

    void run() {
        Worker& master = *workers_.front();
        RunContext context{&sink_, &master.action()};
        const RunContextScope scope(&context);
        bool mayRun = false;
        master.guarded([&] { mayRun = master.prepare(); });
        std::vector<std::thread> threads;
        for (size_t copy = 1; copy < workers_.size() && mayRun; ++copy)
            start(threads, *workers_[copy]);
        if (mayRun)
            master.guarded([&] { master.runSteps(); });
        masterGroup_.metaReady.release(ParallelGroup::metaPermits);
        for (std::thread& thread : threads)
            thread.join();
        // Copies that never ran have nothing to give back. The master waits for all of them, or for
        // none; what is missing is made up for, so that it always gets through.
        const int released = masterGroup_.workersDone.available();
        const int ran = mayRun ? masterGroup_.workerCount : 0;
        if (released != 0 && released != ran)
            defect_ = QStringLiteral("%1 of %2 copies released workersDone").arg(released).arg(ran);
        masterGroup_.workersDone.release(std::max(0, masterGroup_.workerCount - released));
        master.guarded([&] { master.action().afterRun(); });
    }

    ParallelResult result() {
        ParallelResult result;
        const qint32 status = workers_.front()->action().globalParameters->runStatus;
        const bool failed = std::any_of(workers_.begin(), workers_.end(), [](const auto& worker) {
            return worker->action().actionFailed;
        });
        if (status == RunStatus::Cancelled)
            result.outcome = RunOutcome::Cancelled;
        else if (status == RunStatus::Running && !failed)
            result.outcome = RunOutcome::Done;
        for (size_t pin = 0; pin < workers_.front()->outputs.size(); ++pin)
            result.outputs.push_back(merge(workers_, pin));
        result.defect = defect_.isEmpty() ? defectOfCopies(result) : defect_;
        return result;
    }

private:
    void addWorker(ActionItem& action, const std::vector<const PackedTable*>& inputs,
                   const Deal& deal, const ParallelOptions& options) {
        workers_.push_back(std::make_unique<Worker>(action, inputs, deal, workers_.size(),
                                                    options.partitionColumn));
    }

    void runCopy(Worker& copy) {
        RunContext context{&sink_, &copy.action()};
        const RunContextScope scope(&context);
        copy.guarded([&] {
            if (copy.prepare())
                copy.runSteps();
        });
        copy.guarded([&] { copy.action().afterRun(); });
    }

    void start(std::vector<std::thread>& threads, Worker& copy) {
        try {
            threads.emplace_back([this, &copy] { runCopy(copy); });
        } catch (const std::system_error& error) {
            // A run that has failed ends at once, so the copy can be ended on this thread.
            copy.action().fail(QStringLiteral("no thread for a parallel copy: %1\n")
                                   .arg(QString::fromLocal8Bit(error.what())));
            runCopy(copy);
        }
    }

    QString defectOfCopies(const ParallelResult& result) const {
        for (const auto& worker : workers_) {
            if (worker->hasReadOtherPins())
                return QStringLiteral("a copy read an input pin other than pin 0");
            for (size_t pin = 0; pin < worker->outputs.size(); ++pin) {
                const Output& output = worker->outputs[pin];
                if (output.hasShape && !(output.table.shape == result.outputs[pin].shape))
                    return QStringLiteral("a copy has other output columns than its master");
            }
        }
        return {};
    }

    MessageSink& sink_;
    ParallelGroup* outerGroup_;
    ParallelGroup masterGroup_;
    std::vector<std::unique_ptr<ParallelGroup>> copyGroups_;
    std::vector<std::unique_ptr<ActionItem>> clones_;
    std::vector<std::unique_ptr<Worker>> workers_; ///< the master first
    QString defect_;
};

ParallelResult refused(ActionItem& master, MessageSink& sink, const QString& text) {
    RunContext context{&sink, &master};
    const RunContextScope scope(&context);
    ParallelGroup group;
    ParallelGroup* const outerGroup = std::exchange(master.parallelGroup, &group);
    master.fail(text);
    master.parallelGroup = outerGroup;
    ParallelResult result;
    result.outputs.resize(static_cast<size_t>(master.nPinOut));
    return result;
}

} // namespace

ParallelResult runParallelSection(ActionItem& master, const std::vector<const PackedTable*>& inputs,
                                  MessageSink& sink, const ParallelOptions& options) {
    static const PackedTable noTable;
    const PackedTable& main =
        inputs.empty() || inputs.front() == nullptr ? noTable : *inputs.front();
    const size_t workers = static_cast<size_t>(options.copies) + 1;
    Deal deal;
    if (options.partitionColumn.isEmpty() || main.rows() == 0) {
        deal =
            dealBatches(main.rows(), workers, static_cast<size_t>(std::max(1, options.batchRows)));
    } else {
        const auto column = main.shape.names.indexOf(options.partitionColumn);
        if (column < 0)
            return refused(master, sink,
                           QStringLiteral("partition column '") + options.partitionColumn +
                               QStringLiteral("' not found on input pin 0\n"));
        deal = dealPartitions(main, static_cast<int>(column), workers);
    }
    Section section(master, inputs, sink, deal, options);
    section.run();
    return section.result();
}

} // namespace velmorra
