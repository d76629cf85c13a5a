#include "engine/graph_file.h"

#include "host/message.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QRegularExpression>

#include <algorithm>

namespace velmorra {

namespace {

/// Keeps what an Action's constructor says while its element is loaded.
class LoadMessages : public MessageSink {
public:
    void take(const Message& message) override { messages.push_back(message); }
    QVector<Message> messages;
};

/// The attribute or child element that a problem of a stored element names; of one in a child
/// element `child.name`.
QString settingNamed(const QString& text) {
    static const QRegularExpression named(
        QStringLiteral("^(?:in '([^']+)': )?.*?(?:attribute|child element) '([^']+)'"));
    const auto match = named.match(text);
    const QString child = match.captured(1);
    return child.isEmpty() ? match.captured(2) : child + QLatin1Char('.') + match.captured(2);
}

/// Reads one graph; the problems it meets add up.
class GraphReader {
public:
    explicit GraphReader(const ActionCatalog& catalog) : catalog_(catalog) {}

    GraphLoad read(const XMLNode& root, const QString& folder,
                   const QVector<std::pair<QString, QString>>& overrides) {
        load_.graph = std::make_unique<Graph>();
        GlobalParameters& parameters = load_.graph->parameters;
        parameters.setGraphFolder(folder);
        parameters.fileVersion =
            xmltof(root.getAttribute("version", nullptr), GlobalParameters::currentFileVersion);
        root.forEachChild([&](const XMLNode& part) { warnOfUnknownPart(part); });
        readParameters(root.getChildNode("Parameters", nullptr));
        for (const auto& [name, value] : overrides)
            parameters.set(name, value);
        readBoxes(root.getChildNode("Actions", nullptr));
        readLinks(root.getChildNode("Links", nullptr));
        load_.problems += load_.graph->checkWiring();
        return std::move(load_);
    }

private:
    void problem(const QString& text, bool isError = true) {
        GraphProblem problem;
        problem.text = text;
        problem.isError = isError;
        load_.problems.push_back(problem);
    }

    void warnOfUnknownPart(const XMLNode& part) {
        const QString name = QString::fromUtf8(part.name());
        const QStringList known = {"Parameters", "Actions", "Links"};
        if (!known.contains(name, Qt::CaseInsensitive))
            problem(QLatin1String("unknown element '") + name + QLatin1String("' in the graph"),
                    false);
    }

    void readParameters(const XMLNode& part) {
        part.forEachChild([&](const XMLNode& p) {
            const QString name = xmltoa(p.getAttribute("name", nullptr));
            if (name.isEmpty())
                problem(QStringLiteral("a parameter without a name"), false);
            else
                load_.graph->parameters.set(name, xmltoa(p.getAttribute("value", nullptr), ""));
        });
    }

    void readBoxes(const XMLNode& part) {
        QStringList ids;
        part.forEachChild([&](const XMLNode& element) {
            ids.push_back(xmltoa(element.getAttribute("id", nullptr)));
        });
        QSet<QString> taken(ids.begin(), ids.end());
        int place = 0;
        int free = 1;
        part.forEachChild([&](const XMLNode& element) {
            QString id = ids[place++];
            for (; id.isEmpty(); ++free) {
                if (!taken.contains(QString::number(free)))
                    id = QString::number(free);
            }
            if (place <= Graph::maxBoxes)
                readBox(element, id);
        });
        if (place > Graph::maxBoxes)
            problem(QStringLiteral("the graph has %1 boxes; at most %2 are possible")
                        .arg(place)
                        .arg(Graph::maxBoxes));
    }

    void readBox(const XMLNode& element, const QString& id) {
        LoadMessages said;
        RunContext context{&said, nullptr};
        const RunContextScope scope(&context);
        std::unique_ptr<ActionItem> box = catalog_.create(element, &load_.graph->parameters);
        if (!box) {
            problem(QLatin1String("box ") + id + QLatin1String(": ") +
                    catalog_.unknownActionText(QString::fromUtf8(element.name())));
            load_.problems.back().boxId = id;
            load_.problems.back().titleSize = id.size() + 6;
            broken_.insert(id);
            return;
        }
        box->boxId = id;
        for (const StoredProblem& found : box->storedElement().check(element, boxAttributes())) {
            load_.problems.push_back(boxProblem(*box, found.text, false));
            load_.problems.back().setting = settingNamed(found.text);
        }
        for (const Message& message : said.messages)
            load_.problems.push_back(boxProblem(*box, message.text, message.level == 1));
        load_.graph->addBox(std::move(box));
    }

    /// The place of the box that one end of a link names, or -1.
    int endOfLink(const XMLNode& l, const char* attribute) {
        const QString id = xmltoa(l.getAttribute(attribute, nullptr));
        const int place = load_.graph->indexOfBox(id);
        if (place < 0 && !broken_.contains(id))
            problem(QStringLiteral("link %1: there is no box '%2' (attribute '%3')")
                        .arg(QString::number(linkNumber_), id, QLatin1String(attribute)));
        return place;
    }

    int pinOfLink(const XMLNode& l, const char* attribute) {
        const char* const text = l.getAttribute(attribute, nullptr);
        const int pin = xmltoi(text, text == nullptr ? 0 : -1);
        if (pin < 0)
            problem(QStringLiteral("link %1: '%2' isn't a pin number (attribute '%3')")
                        .arg(QString::number(linkNumber_), xmltoa(text), QLatin1String(attribute)));
        return pin;
    }

    void readLinks(const XMLNode& part) {
        part.forEachChild([&](const XMLNode& l) {
            ++linkNumber_;
            const Link link{endOfLink(l, "from"), pinOfLink(l, "out"), endOfLink(l, "to"),
                            pinOfLink(l, "in")};
            if (link.from >= 0 && link.to >= 0 && link.out >= 0 && link.in >= 0)
                load_.graph->addLink(link);
            else if (link.to >= 0 && link.in >= 0)
                load_.cutPins.push_back({link.to, link.in});
        });
    }

    const ActionCatalog& catalog_;
    GraphLoad load_;
    QSet<QString> broken_; ///< boxes that couldn't be made: their links aren't reported too
    int linkNumber_ = 0;
};

GraphLoad refused(const QString& text) {
    GraphLoad load;
    GraphProblem problem;
    problem.text = text;
    load.problems.push_back(problem);
    return load;
}

} // namespace

bool GraphLoad::isRunnable() const {
    return graph && std::none_of(problems.begin(), problems.end(),
                                 [](const GraphProblem& problem) { return problem.isError; });
}

GraphLoad parseGraph(const QByteArray& text, const QString& folder, const ActionCatalog& catalog,
                     const QVector<std::pair<QString, QString>>& overrides) {
    const XMLNode::Parsed parsed = XMLNode::parse(text);
    if (parsed.root.isNull())
        return refused(
            QStringLiteral("line %1, column %2: %3")
                .arg(QString::number(parsed.line), QString::number(parsed.column), parsed.error));
    if (qstricmp(parsed.root.name(), "VelmorraGraph") != 0)
        return refused(QStringLiteral("this is no graph: its root is '%1', not 'VelmorraGraph'")
                           .arg(QString::fromUtf8(parsed.root.name())));
    return GraphReader(catalog).read(parsed.root, folder, overrides);
}

GraphLoad loadGraph(const QString& path, const ActionCatalog& catalog,
                    const QVector<std::pair<QString, QString>>& overrides) {
    QFile file(path);
    if (QFileInfo(path).isDir())
        return refused(QStringLiteral("can't be read: it is a folder"));
    if (!file.open(QIODevice::ReadOnly))
        return refused(QLatin1String("can't be read: ") + file.errorString());
    // One byte over the bound is enough for the parser to refuse the text.
    const QByteArray text = file.read(XMLNode::maxBytes + 1);
    if (file.error() != QFileDevice::NoError)
        return refused(QLatin1String("can't be read: ") + file.errorString());
    return parseGraph(text, QFileInfo(path).absolutePath(), catalog, overrides);
}

namespace {

/// What the stream holds, or which character made it fail; `holder` holds that character.
GraphText textOf(const XMLStream& stream, const QString& holder) {
    if (stream.fail())
        return {{},
                holder + QLatin1String(" holds the character ") + toXMLStringTool().refused() +
                    QLatin1String(", which XML can't hold")};
    return {QString::fromStdU16String(stream.str()), {}};
}

GraphText parameterText(const QString& name, const QString& value) {
    XMLStream stream;
    stream << "<p";
    writeAttribute(stream, QStringLiteral("name"), name);
    writeAttribute(stream, QStringLiteral("value"), value);
    stream << "/>\n";
    return textOf(stream, QStringLiteral("the parameter '%1'").arg(name));
}

GraphText boxText(const ActionItem& box) {
    XMLStream stream;
    box.saveToXML(stream, QString());
    return textOf(stream, boxTitle(box) + QLatin1String(": a setting"));
}

QString linkText(const Graph& graph, const Link& link) {
    const auto id = [&](int box) { return graph.boxes()[static_cast<size_t>(box)]->boxId; };
    XMLStream stream;
    stream << "<l";
    writeAttribute(stream, QStringLiteral("from"), id(link.from));
    stream << " out='" << link.out << '\'';
    writeAttribute(stream, QStringLiteral("to"), id(link.to));
    stream << " in='" << link.in << "'/>\n";
    return QString::fromStdU16String(stream.str());
}

} // namespace

GraphText graphText(const Graph& graph) {
    GraphText result;
    const auto take = [&result](const GraphText& part) {
        result.text += part.text;
        if (result.error.isEmpty())
            result.error = part.error;
    };
    result.text = QStringLiteral("<VelmorraGraph version='%1'>\n<Parameters>\n")
                      .arg(graph.parameters.fileVersion);
    for (const auto& [name, value] : graph.parameters.parameters())
        take(parameterText(name, value));
    result.text += QLatin1String("</Parameters>\n<Actions>\n");
    for (const auto& box : graph.boxes())
        take(boxText(*box));
    result.text += QLatin1String("</Actions>\n<Links>\n");
    for (const Link& link : graph.links())
        result.text += linkText(graph, link);
    result.text += QLatin1String("</Links>\n</VelmorraGraph>\n");
    return result;
}

} // namespace velmorra
