#include "tests/plugin/hand_driven.h"

TablePin::TablePin(const QStringList& names, const QVector<QStringList>& rows,
                   const QVector<SortInfos>& sort) {
    fetch = &nextRow;
    columnsOf = &shapeOf;
    shape_.names = names;
    shape_.types.resize(names.size());
    shape_.sort = sort;
    for (const QStringList& texts : rows) {
        rows_.push_back(std::make_unique<OneRow>());
        rows_.back()->setShape(shape_);
        for (int i = 0; i < texts.size(); ++i)
            rows_.back()->setColAsString(i, cells_, texts[i]);
    }
}

const OneRow* TablePin::nextRow(InPin& pin) {
    auto& self = static_cast<TablePin&>(pin);
    const auto next = static_cast<size_t>(self.read);
    if (next == self.rows_.size())
        return nullptr;
    ++self.read;
    return self.rows_[next].get();
}

const PinOutMetaData* TablePin::shapeOf(InPin& pin) {
    return &static_cast<TablePin&>(pin).shape_;
}

HandDriven::HandDriven(std::unique_ptr<ActionItem> action, HandDriven* master)
    : action_(std::move(action)),
      outPins_(static_cast<size_t>(action_->nPinOut)) {
    action_->parallelGroup = &group_;
    if (master == nullptr)
        return;
    group_.masterAction = &master->action();
    ++master->group_.workerCount;
}

bool HandDriven::begin(const std::vector<InPin*>& pins) {
    inPins_ = pins;
    for (OutPin& pin : outPins_)
        pin.row.makeFresh();
    action_->connectPins(inPins_.data(), outPins_.data(), true);
    RunContext context{this, action_.get()};
    const RunContextScope scope(&context);
    action_->rewindRun();
    return action_->beforeRun();
}

bool HandDriven::step() {
    RunContext context{this, action_.get()};
    const RunContextScope scope(&context);
    for (OutPin& pin : outPins_)
        pin.ready = false;
    return action_->runStep(action_.get());
}

QStringList HandDriven::row() {
    QStringList texts;
    if (!outPins_.front().ready)
        return texts;
    ushort scratch[OneRow::scratchUnits];
    for (int i = 0; i < output().sz(); ++i)
        texts.push_back(detach(output().col(i, scratch)));
    return texts;
}

bool HandDriven::afterRun() {
    return action_->afterRun();
}
