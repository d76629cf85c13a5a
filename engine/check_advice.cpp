#include "engine/check_advice.h"

#include "host/nearest_name.h"

#include <QtCore/QRegularExpression>

#include <algorithm>

namespace velmorra {

namespace {

/// A text that the box stores, by the name of its attribute or list.
struct StoredText {
    QString setting;
    QString value; ///< parameters are in
};

void addStoredTexts(const StoredElement& element, ActionItem& box, const QString& path,
                    QVector<StoredText>& texts) {
    for (const StoredAttribute& attribute : element.attributes()) {
        if (attribute.kind != StoredKind::Text)
            continue;
        const QString& value = *static_cast<const QString*>(attribute.member(&box));
        texts.push_back({path + QLatin1String(attribute.name), box.expandString(value)});
        if (const QString file = box.expandFile(value); file != texts.back().value)
            texts.push_back({texts.back().setting, file});
    }
    if (const auto& list = element.ownList()) {
        const auto& entries = *static_cast<const QVector<QString>*>(list->member(&box));
        const QString name = path.isEmpty() ? QString::fromUtf8(list->name) : path.chopped(1);
        for (const QString& entry : entries)
            texts.push_back({name, box.expandString(entry)});
    }
    for (const StoredElement::Child& child : element.children())
        addStoredTexts(child.element, box, path + QLatin1String(child.name) + u'.', texts);
}

QVector<StoredText> storedTexts(ActionItem& box) {
    QVector<StoredText> texts;
    addStoredTexts(box.storedElement(), box, {}, texts);
    texts.removeIf([](const StoredText& text) { return text.value.isEmpty(); });
    return texts;
}

QStringList quotedTexts(const QString& text) {
    static const QRegularExpression quoted(QStringLiteral("'([^']+)'"));
    QStringList texts;
    for (auto match = quoted.globalMatch(text); match.hasNext();)
        texts.push_back(match.next().captured(1));
    return texts;
}

/// The setting whose value the message quotes, or which it names itself.
QString settingOf(ActionItem& box, const QString& text) {
    const QVector<StoredText> stored = storedTexts(box);
    for (const QString& quoted : quotedTexts(text)) {
        for (const StoredText& candidate : stored) {
            if (candidate.value == quoted)
                return candidate.setting;
        }
    }
    // A plain word such as "file" may be no more than that word.
    for (const StoredAttribute& attribute : box.storedElement().attributes()) {
        const QString name = QString::fromUtf8(attribute.name);
        const bool isWord = name == name.toLower();
        const QRegularExpression named(
            QStringLiteral("\\b%1\\b%2")
                .arg(QRegularExpression::escape(name), QLatin1String(isWord ? "(?=['=])" : "")));
        if (named.match(text).hasMatch())
            return name;
    }
    return {};
}

bool speaksOfColumns(const QString& text) {
    return text.contains(QLatin1String("column"), Qt::CaseInsensitive);
}

bool speaksOfOrder(const QString& text) {
    return text.contains(QLatin1String("sort"), Qt::CaseInsensitive);
}

int pinOf(const std::vector<ProbeInput>& inputs, const QString& text) {
    static const QRegularExpression named(QStringLiteral("\\bpin (\\d{1,6})\\b"),
                                          QRegularExpression::CaseInsensitiveOption);
    if (const auto match = named.match(text); match.hasMatch()) {
        const int pin = match.captured(1).toInt();
        return pin < static_cast<int>(inputs.size()) ? pin : -1;
    }
    if (!speaksOfColumns(text) && !speaksOfOrder(text))
        return -1;
    const auto isConnected = [](const ProbeInput& input) {
        return input.kind != ProbeInput::Kind::Unconnected;
    };
    if (std::count_if(inputs.begin(), inputs.end(), isConnected) == 1)
        return static_cast<int>(std::find_if(inputs.begin(), inputs.end(), isConnected) -
                                inputs.begin());
    return inputs.empty() || text.contains(QLatin1String("slave"), Qt::CaseInsensitive) ? -1 : 0;
}

/// For a column that isn't there: the nearest one, or those that are.
QString columnAdvice(const BoxProblem& problem, const PinOutMetaData& shape) {
    constexpr qsizetype mostNames = 10;
    const QStringList names(shape.names.begin(), shape.names.end());
    for (const QString& quoted : quotedTexts(problem.text)) {
        if (names.contains(quoted))
            continue;
        if (const QString nearest = nearestName(quoted, names); !nearest.isNull())
            return QLatin1String("did you mean '") + nearest + QLatin1String("'?");
        return QStringLiteral("pin %1 has the columns ").arg(problem.pin) +
               names.mid(0, mostNames).join(QLatin1String(", ")) +
               QLatin1String(names.size() > mostNames ? ", ..." : "");
    }
    return {};
}

/// Looks for the order of one pin with which the box has no problem.
class OrderSearch {
public:
    OrderSearch(const Graph& graph, const std::vector<ProbeInput>& inputs,
                const BoxProblem& problem, int pin)
        : graph_(graph),
          inputs_(inputs),
          problem_(problem),
          pin_(static_cast<size_t>(pin)),
          shape_(inputs[pin_].columns) {}

    /// The order as `name:0,other:A`; null when none is found.
    QString find() {
        QVector<int> named;
        for (const QString& quoted : quotedTexts(problem_.text))
            addColumn(named, quoted);
        QVector<int> stored;
        ActionItem& box = *graph_.boxes()[static_cast<size_t>(problem_.box)];
        for (const StoredText& text : storedTexts(box))
            addColumn(stored, text.value);
        if (!shape_.names.isEmpty())
            named.push_back(0); // "on its first column"
        for (const int column : named + stored) {
            if (tryOrder({column}))
                return orderText();
        }
        for (const int column : named) {
            for (const int next : named + stored) {
                if (next != column && tryOrder({column, next}))
                    return orderText();
            }
        }
        for (qsizetype count = 2; count <= stored.size(); ++count) {
            if (tryOrder(stored.mid(0, count)))
                return orderText();
        }
        return {};
    }

private:
    static constexpr int mostTries = 64;

    void addColumn(QVector<int>& columns, const QString& name) const {
        const int column = static_cast<int>(shape_.names.indexOf(name));
        if (column >= 0 && !columns.contains(column))
            columns.push_back(column);
    }

    bool tryOrder(const QVector<int>& columns) {
        const auto natural = [this](int column) {
            return shape_.types[column].type == MetaTypeText ? SortTextRising : SortNumberRising;
        };
        const auto other = [](SortTypes type) {
            return type == SortTextRising ? SortNumberRising : SortTextRising;
        };
        for (const bool asOther : {false, true}) {
            if (++tries_ > mostTries)
                return false;
            order_.clear();
            for (const int column : columns)
                order_.push_back({column, asOther ? other(natural(column)) : natural(column)});
            std::vector<ProbeInput> inputs = inputs_;
            inputs[pin_].columns.sort = order_;
            const ProbeAnswer answer = probeBox(graph_, problem_.box, inputs);
            const bool stillSaid = std::any_of(
                answer.messages.begin(), answer.messages.end(), [this](const Message& message) {
                    return message.text.trimmed() == problem_.text ||
                           (message.level <= 2 && speaksOfOrder(message.text) &&
                            pinOf(inputs_, message.text) == problem_.pin);
                });
            if (!stillSaid)
                return true;
        }
        return false;
    }

    QString orderText() const {
        QStringList entries;
        for (const SortInfos& sort : order_) {
            QString entry = shape_.names[sort.column] + u':' + QChar(sort.SortType);
            if (entry.contains(u',') || entry.contains(u'"'))
                entry = u'"' + entry.replace(u'"', QLatin1String("\"\"")) + u'"';
            entries.push_back(entry);
        }
        return entries.join(u',');
    }

    const Graph& graph_;
    const std::vector<ProbeInput>& inputs_;
    const BoxProblem& problem_;
    const size_t pin_;
    const PinOutMetaData& shape_;
    QVector<SortInfos> order_;
    int tries_ = 0;
};

} // namespace

void locateProblem(const Graph& graph, const std::vector<ProbeInput>& inputs, BoxProblem& problem) {
    ActionItem& box = *graph.boxes()[static_cast<size_t>(problem.box)];
    problem.setting = settingOf(box, problem.text);
    problem.pin = pinOf(inputs, problem.text);
}

QString adviceFor(const Graph& graph, const std::vector<ProbeInput>& inputs,
                  const BoxProblem& problem) {
    if (problem.pin < 0)
        return {};
    const ProbeInput& input = inputs[static_cast<size_t>(problem.pin)];
    if (input.columns.names.isEmpty())
        return {};
    if (speaksOfOrder(problem.text)) {
        const QString order = OrderSearch(graph, inputs, problem, problem.pin).find();
        if (!order.isNull())
            return QStringLiteral("put a Sort by=%1 in front of pin %2")
                .arg(order, QString::number(problem.pin));
    }
    return speaksOfColumns(problem.text) && !problem.setting.isNull()
               ? columnAdvice(problem, input.columns)
               : QString();
}

} // namespace velmorra
