#include "engine/graph_check.h"

#include "engine/check_advice.h"
#include "engine/engine_box.h"
#include "engine/graph_part.h"

#include <QtCore/QFileInfo>
#include <QtCore/QSet>

#include <algorithm>
#include <functional>
#include <queue>

namespace velmorra {

namespace {

/// Why the file that an output writes can't be written; null when that can't be told beforehand.
QString targetProblem(const QString& path) {
    if (path == QLatin1String("-"))
        return {};
    const QString start = QLatin1String("cannot write '") + path + QLatin1String("': ");
    const QFileInfo file(path);
    if (path.isEmpty())
        return start + QLatin1String("no file name given");
    if (file.isDir())
        return start + QLatin1String("it is a directory");
    const QFileInfo folder(file.absolutePath());
    if (!folder.isDir())
        return start + QLatin1String("there is no folder '") + folder.filePath() + u'\'';
    const bool isDevice = file.exists() && !file.isFile();
    if (!(isDevice ? file : folder).isWritable())
        return start + QLatin1String("Permission denied");
    return {};
}

class GraphLooker {
public:
    GraphLooker(const Graph& graph, const QVector<InputPlace>& cutPins)
        : graph_(graph),
          inputs_(graph.boxes().size()) {
        for (size_t box = 0; box < inputs_.size(); ++box) {
            inputs_[box].resize(static_cast<size_t>(graph.boxes()[box]->nPinIn));
            look_.columns.emplace_back(static_cast<size_t>(graph.boxes()[box]->nPinOut));
        }
        for (const Link& link : graph.links()) {
            ProbeInput& input = inputAt(link.to, link.in);
            input.kind = ProbeInput::Kind::Unknown;
            input.producer = link.from;
            input.out = link.out;
        }
        for (const InputPlace& cut : cutPins) {
            if (cut.pin >= graph.boxes()[static_cast<size_t>(cut.box)]->nPinIn)
                continue;
            inputAt(cut.box, cut.pin) = {};
            inputAt(cut.box, cut.pin).kind = ProbeInput::Kind::Unknown;
        }
    }

    GraphLook look(int target) {
        const std::vector<bool> wanted = upstreamOf(target);
        for (const int box : flowOrder()) {
            if (wanted[static_cast<size_t>(box)])
                lookAtBox(box);
        }
        return std::move(look_);
    }

private:
    ProbeInput& inputAt(int box, int pin) {
        return inputs_[static_cast<size_t>(box)][static_cast<size_t>(pin)];
    }

    /// The boxes upstream of `target`, itself among them; all when it is negative.
    std::vector<bool> upstreamOf(int target) const {
        std::vector<bool> wanted(inputs_.size(), target < 0);
        std::vector<int> open;
        if (target >= 0)
            open.push_back(target);
        while (!open.empty()) {
            const auto box = static_cast<size_t>(open.back());
            open.pop_back();
            if (wanted[box])
                continue;
            wanted[box] = true;
            for (const ProbeInput& input : inputs_[box]) {
                if (input.producer >= 0)
                    open.push_back(input.producer);
            }
        }
        return wanted;
    }

    /// Every box behind those that feed it; by place in the graph where that leaves it open.
    std::vector<int> flowOrder() const {
        std::vector<int> waitsFor(inputs_.size(), 0);
        std::vector<std::vector<int>> consumers(inputs_.size());
        for (const Link& link : graph_.links()) {
            ++waitsFor[static_cast<size_t>(link.to)];
            consumers[static_cast<size_t>(link.from)].push_back(link.to);
        }
        std::priority_queue<int, std::vector<int>, std::greater<>> ready;
        for (size_t box = 0; box < waitsFor.size(); ++box) {
            if (waitsFor[box] == 0)
                ready.push(static_cast<int>(box));
        }
        std::vector<int> order;
        while (!ready.empty()) {
            const int box = ready.top();
            ready.pop();
            order.push_back(box);
            for (const int consumer : consumers[static_cast<size_t>(box)]) {
                if (--waitsFor[static_cast<size_t>(consumer)] == 0)
                    ready.push(consumer);
            }
        }
        return order;
    }

    void lookAtBox(int box) {
        std::vector<ProbeInput>& inputs = inputs_[static_cast<size_t>(box)];
        ActionItem& action = *graph_.boxes()[static_cast<size_t>(box)];
        bool isMuted = false;
        for (size_t pin = 0; pin < inputs.size(); ++pin) {
            ProbeInput& input = inputs[pin];
            if (input.producer >= 0) {
                const auto& columns = look_.columns[static_cast<size_t>(input.producer)]
                                                   [static_cast<size_t>(input.out)];
                if (columns) {
                    input.columns = *columns;
                    input.kind = action.needsFullTable(static_cast<int>(pin))
                                     ? ProbeInput::Kind::WholeTable
                                     : ProbeInput::Kind::Columns;
                }
            }
            isMuted = isMuted || input.kind == ProbeInput::Kind::Unknown;
        }
        ProbeAnswer answer = probeBox(graph_, box, inputs);
        addProblems(box, answer);
        if (dynamic_cast<const OutputBox*>(&action) != nullptr)
            checkTarget(box, action);
        const bool told = std::all_of(answer.columns.begin(), answer.columns.end(),
                                      [](const auto& columns) { return columns.has_value(); });
        if (!told && !isMuted && !answer.hasProblem())
            add({2,
                 box,
                 -1,
                 {},
                 QStringLiteral("its columns can't be told, so nothing is checked "
                                "that hangs on it"),
                 {}});
        look_.columns[static_cast<size_t>(box)] = std::move(answer.columns);
    }

    /// Outputs open nothing when only columns are asked for.
    void checkTarget(int box, ActionItem& output) {
        for (const StoredAttribute& attribute : output.storedElement().attributes()) {
            if (attribute.kind != StoredKind::Text || qstrcmp(attribute.name, "file") != 0)
                continue;
            const QString& file = *static_cast<const QString*>(attribute.member(&output));
            const QString problem = targetProblem(output.expandFile(file));
            if (!problem.isNull())
                add({1, box, -1, QString::fromUtf8(attribute.name), problem, {}});
        }
    }

    void addProblems(int box, const ProbeAnswer& answer) {
        const auto& inputs = inputs_[static_cast<size_t>(box)];
        bool hasError = false;
        for (const Message& message : answer.messages) {
            // Above are what an Action says of single cells, and notices.
            if (message.level > 2)
                continue;
            const int place = message.boxId.isEmpty() ? box : graph_.indexOfBox(message.boxId);
            BoxProblem problem{
                message.level, place < 0 ? box : place, -1, {}, message.text.trimmed(), {}};
            hasError = hasError || message.level == 1;
            // Another box is one that makes a whole table for this one.
            if (problem.box == box && !isKnown(problem)) {
                locateProblem(graph_, inputs, problem);
                problem.advice = adviceFor(graph_, inputs, problem);
            }
            add(std::move(problem));
        }
        if (answer.failed && !hasError)
            add({1, box, -1, {}, QStringLiteral("it refuses to run and doesn't say why"), {}});
    }

    /// A box that makes a whole table says again what it said when it was asked itself.
    bool isKnown(const BoxProblem& problem) const {
        return known_.contains({problem.box, problem.text});
    }

    void add(BoxProblem problem) {
        if (isKnown(problem))
            return;
        known_.insert({problem.box, problem.text});
        look_.problems.push_back(std::move(problem));
    }

    const Graph& graph_;
    std::vector<std::vector<ProbeInput>> inputs_; ///< by box and pin
    QSet<std::pair<int, QString>> known_;         ///< boxes with what they said
    GraphLook look_;
};

} // namespace

GraphLook lookAt(const Graph& graph, const QVector<InputPlace>& cutPins, int target) {
    GraphLook look;
    runWithStack(graph.boxes().size(), [&] { look = GraphLooker(graph, cutPins).look(target); });
    return look;
}

} // namespace velmorra
