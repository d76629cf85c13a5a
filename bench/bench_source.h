/// The source of rows in the benchmarks of Actions: a box without settings and input, of which a
/// benchmark writes rewindRun and a step.
#pragma once

#include "host/action_item.h"

class BenchSource : public ActionItem {
public:
    const char* actionName() const override { return "BenchSource"; }
    QString actionDescription() const override { return {}; }
    QStringList actionCategories() const override { return {}; }
    QStringList actionKeywords() const override { return {}; }
    ActionItem* newFromXML(XMLNode, GlobalParameters*) const override { return nullptr; }
    const StoredElement& storedElement() const override {
        static const StoredElement element(1);
        return element;
    }

protected:
    explicit BenchSource(GlobalParameters* parameters)
        : ActionItem(XMLNode::emptyNode(), parameters) {
        nPinIn = 0;
    }
};
