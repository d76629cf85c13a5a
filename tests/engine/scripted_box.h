/// A box for tests of the engine, whose step is a function of the test.
#pragma once

#include "engine/graph.h"
#include "tests/plain_box.h"

#include <functional>
#include <string>

namespace velmorra::test {

/// The settings that make a copy of a scripted box behave alike.
struct Script {
    int pinsIn = 1;
    int pinsOut = 1;
    /// What a step does; true when the box has finished.
    std::function<bool(class ScriptedBox&)> step;
    std::function<bool(class ScriptedBox&)> before = [](class ScriptedBox&) { return false; };
    std::function<void(class ScriptedBox&)> after = [](class ScriptedBox&) {};
    bool wholePins = false; ///< pins from 1 on are needed in full for the columns
};

class ScriptedBox : public PlainBox {
public:
    ScriptedBox(const Script& script, GlobalParameters* parameters)
        : PlainBox(XMLNode::emptyNode(), parameters),
          script_(script) {
        nPinIn = script.pinsIn;
        nPinOut = script.pinsOut;
    }

    const char* actionName() const override { return "Scripted"; }
    void rewindRun() override {
        steps = 0;
        setStep<&ScriptedBox::run>();
    }
    bool beforeRun() override { return script_.before(*this); }
    bool afterRun() override {
        script_.after(*this);
        return false;
    }
    char fullTableRequiredToComputeMetas(int pin, bool* answer) override {
        *answer = script_.wholePins && pin > 0;
        return 0;
    }
    ActionItem* clone(GlobalParameters* parameters) const override {
        auto* const copy = new ScriptedBox(script_, parameters);
        copy->boxId = boxId;
        return copy;
    }

    qint64 steps = 0; ///< of this run, for scripts that count
    qint64 state = 0; ///< free for scripts

private:
    bool run() { return script_.step(*this); }

    Script script_;
};

inline int addScript(Graph& graph, const Script& script) {
    return graph.addBox(std::make_unique<ScriptedBox>(script, &graph.parameters));
}

/// Sets a one-column output row of Keys up, once.
inline void shapeKeys(OneRow& row, const QString& name = QStringLiteral("n")) {
    if (!row.isFresh())
        return;
    row.setNumberOfColumns(1);
    row.setColName(0, name);
    row.setMetaType(0, MetaInfo(MetaTypeKey, -1));
}

/// The Keys 0, 1, ... below `count`; negative: without end.
inline Script keys(qint64 count) {
    Script script{.pinsIn = 0, .pinsOut = 1, .step = nullptr};
    script.step = [count, cell = std::array<uchar, 4>()](ScriptedBox& box) mutable {
        OneRow& row = *box.getOutputRowForOutputPin(0);
        shapeKeys(row);
        if (count >= 0 && box.steps >= count)
            return true;
        cell::storeKey(cell.data(), static_cast<quint32>(box.steps++));
        row.setCol(0, cell.data());
        box.setRowReadyForOutput(0);
        return false;
    };
    return script;
}

/// Hands each row on as it is.
inline Script pass() {
    Script script;
    script.step = [](ScriptedBox& box) {
        const OneRow* const in = box.getNextRowFromInPin(0);
        if (in == nullptr)
            return true;
        box.getOutputRowForOutputPin(0)->copyFrom(*in);
        box.setRowReadyForOutput(0);
        return false;
    };
    return script;
}

/// Collects the Keys of its pin 0; at most `limit` of them where that isn't negative.
inline Script collect(std::vector<quint32>& keysOut, qint64 limit = -1) {
    Script script{.pinsIn = 1, .pinsOut = 0, .step = nullptr};
    script.step = [&keysOut, limit](ScriptedBox& box) {
        if (limit >= 0 && static_cast<qint64>(keysOut.size()) >= limit)
            return true;
        const OneRow* const in = box.getNextRowFromInPin(0);
        if (in == nullptr)
            return true;
        keysOut.push_back(cell::loadKey(in->cells[0]));
        return false;
    };
    return script;
}

/// Keeps messages as "[level] box: text".
class KeptMessages : public MessageSink {
public:
    void take(const Message& message) override {
        lines.push_back("[" + std::to_string(message.level) + "] " + message.boxId.toStdString() +
                        ": " + message.text.toStdString());
    }
    std::vector<std::string> lines;
};

} // namespace velmorra::test
