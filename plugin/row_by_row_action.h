/// The frame of Actions that settle everything on the first row and then turn each row of pin 0
/// into one row, so that they may always run in parallel.
///
/// The Action has, all called by this frame:
///
///     bool resolve(const OneRow& row)      on a plain run or a master: reads the pins from 1 on
///     and
///                                          shapes the output; false when the Action has failed or
///                                          the run has ended
///     void takeFrom(const Action& master)  on a copy, whose output has the master's columns then
///     void passOn(const OneRow& row)       fills the output row and hands it on
///     void release()                       frees what the run allocated
#pragma once

#include "plugin/parallel_meeting.h"
#include "plugin/plugin_action.h"

template <class Action, ActionIndex index>
class RowByRowAction : public PluginAction<Action, index> {
public:
    void rewindRun() override {
        meeting_.rewind();
        this->template setStep<&RowByRowAction::firstStep>();
    }

    bool afterRun() override {
        meeting_.part();
        self().release();
        return false;
    }

    char canRunInParallel(const QString&, bool* answer) override {
        *answer = true;
        return 0;
    }

protected:
    using PluginAction<Action, index>::PluginAction;

private:
    Action& self() { return static_cast<Action&>(*this); }

    bool firstStep() {
        const OneRow* const row = this->getNextRowFromInPin(0);
        bool ready = row != nullptr;
        if (this->isParallelCopy()) {
            ready = ready && takeFromMaster();
        } else {
            ready = ready && self().resolve(*row);
            meeting_.letCopiesGo();
        }
        if (!ready || !this->isRunning())
            return true;
        this->template setStep<&RowByRowAction::nextStep>();
        self().passOn(*row);
        return !this->mustComputeFull();
    }

    bool nextStep() {
        const OneRow* const row = this->getNextRowFromInPin(0);
        if (row == nullptr)
            return true;
        self().passOn(*row);
        return false;
    }

    bool takeFromMaster() {
        if (!meeting_.meetMaster())
            return false;
        self().takeFrom(static_cast<const Action&>(*this->parallelGroup->masterAction));
        this->copyMetaFromMasterAction();
        return true;
    }

    ParallelMeeting meeting_{*this};
};
