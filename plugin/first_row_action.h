/// The frame of Actions that settle everything on the first row of pin 0, alone or as a master
/// whose parallel copies then take over what it found.
///
/// The Action has, all called by this frame:
///
///     bool resolve(const OneRow& row)      on a plain run or a master: reads the pins from 1 on
///     and
///                                          shapes the output; false when the Action has failed or
///                                          the run has ended
///     void takeFrom(const Action& master)  on a copy, whose output has the master's columns then
///     bool begin(const OneRow& row)        behind either: sets the step for further rows and does
///                                          what it does for this one; true when it was the last
///     void release()                       frees what the run allocated
#pragma once

#include "plugin/parallel_meeting.h"
#include "plugin/plugin_action.h"

template <class Action, ActionIndex index>
class FirstRowAction : public PluginAction<Action, index> {
public:
    void rewindRun() override {
        isResolved_ = false;
        meeting_.rewind();
        this->template setStep<&FirstRowAction::firstStep>();
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
        if (this->isParallelCopy()) {
            isResolved_ = row != nullptr && takeFromMaster();
        } else {
            isResolved_ = row != nullptr && self().resolve(*row);
            meeting_.letCopiesGo();
        }
        return !isResolved_ || !this->isRunning() || self().begin(*row);
    }

    bool takeFromMaster() {
        if (!meeting_.meetMaster())
            return false;
        const auto& master = static_cast<const Action&>(*this->parallelGroup->masterAction);
        if (!static_cast<const FirstRowAction&>(master).isResolved_)
            return false;
        this->copyMetaFromMasterAction();
        self().takeFrom(master);
        return true;
    }

    ParallelMeeting meeting_{*this};
    bool isResolved_ = false;
};
