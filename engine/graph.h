/// A graph: boxes, the links between their pins, and the parameters.
#pragma once

#include "engine/catalog.h"

#include <QtCore/QHash>

#include <memory>
#include <vector>

namespace velmorra {

/// A wire from an output pin to an input pin; boxes by their place in the graph.
struct Link {
    int from = 0;
    int out = 0;
    int to = 0;
    int in = 0;
};

/// An input pin of a box by its place in the graph.
struct InputPlace {
    int box = -1;
    int pin = -1;
};

/// What is wrong with a graph, said with the box: "box 3 (Join): ...".
struct GraphProblem {
    QString text;
    bool isError = true; ///< else a warning: an unknown attribute or child

    // Where a box is meant.
    QString boxId;
    QString boxName;         ///< the Action's name
    int pin = -1;            ///< input or output pin, where one is meant
    QString setting;         ///< attribute or child element, where one is meant
    qsizetype titleSize = 0; ///< of the box's title at the front of the text

    /// The text without the box.
    QString ownText() const { return text.mid(titleSize); }
};

class Graph {
public:
    static constexpr int maxBoxes = 10000;
    static constexpr int maxInputPins = 1 << 20; ///< of all boxes together

    Graph() = default;
    Graph(const Graph&) = delete;
    Graph& operator=(const Graph&) = delete;

    /// Parameters of the graph; every box points here.
    GlobalParameters parameters;

    const std::vector<std::unique_ptr<ActionItem>>& boxes() const { return boxes_; }
    const std::vector<Link>& links() const { return links_; }

    /// Adds a box and returns its place. The box must have been made with this graph's parameters.
    /// A box without an id gets the smallest free number.
    int addBox(std::unique_ptr<ActionItem> box);
    void addLink(const Link& link) { links_.push_back(link); }

    /// The place of the box with this id, or -1.
    int indexOfBox(const QString& id) const;

    /// Wiring that can't run: links to pins that aren't there, two links on one input pin, a loop,
    /// two boxes of one id, too many boxes or pins.
    QVector<GraphProblem> checkWiring() const;

private:
    std::vector<std::unique_ptr<ActionItem>> boxes_;
    std::vector<Link> links_;
    QHash<QString, int> places_;
};

/// "box 3 (Join)", or with its label "box 3 'prices' (Join)".
QString boxTitle(const ActionItem& box);

/// A problem of a box, with the box in front of what is said.
GraphProblem boxProblem(const ActionItem& box, const QString& text, bool isError = true,
                        int pin = -1);

} // namespace velmorra
