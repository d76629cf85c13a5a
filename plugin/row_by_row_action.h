/// The frame of Actions that settle everything on the first row and then turn each row of pin 0
/// into one row. Beside what FirstRowAction calls, the Action has
///
///     void passOn(const OneRow& row)  fills the output row and hands it on
///
/// in place of `begin`.
#pragma once

#include "plugin/first_row_action.h"

template <class Action, ActionIndex index>
class RowByRowAction : public FirstRowAction<Action, index> {
public:
    bool begin(const OneRow& row) {
        this->template setStep<&RowByRowAction::nextStep>();
        self().passOn(row);
        return !this->mustComputeFull();
    }

protected:
    using FirstRowAction<Action, index>::FirstRowAction;

private:
    Action& self() { return static_cast<Action&>(*this); }

    bool nextStep() {
        const OneRow* const row = this->getNextRowFromInPin(0);
        if (row == nullptr)
            return true;
        self().passOn(*row);
        return false;
    }
};
