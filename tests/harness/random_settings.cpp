#include "tests/harness/random_settings.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <random>

namespace velmorra::harness {

namespace {

using Random = std::mt19937;

int below(Random& random, int limit) {
    return static_cast<int>(random() % static_cast<unsigned>(limit));
}

/// Texts that escaping, splitting and formatting are likely to get wrong.
QString nastyText(Random& random) {
    static const QStringList pieces =
        QStringLiteral(
            "a^ ^'^\"^&^&amp;^<^>^]]>^%1^\t^\n^\r^\r\n^${x}^:/^\u00e9^\u00a0^\u4e2d^<!--^"
            "</s>^\U0001F600^0^,")
            .split(QLatin1Char('^'));
    QString text = QStringLiteral("");
    for (int count = below(random, 6); count > 0; --count)
        text += pieces[below(random, static_cast<int>(pieces.size()))];
    return text;
}

double anyNumber(Random& random) {
    static constexpr double numbers[] = {
        0,       1,    -1,    0.1,  1e-300,      1.7976931348623157e308, 123456789.125,
        1.0 / 3, 1e16, 1e-05, 5e15, 4294967295.0};
    return numbers[below(random, std::size(numbers))] * (below(random, 2) == 0 ? 1 : -1);
}

template <class Integer>
Integer anyInteger(Random& random) {
    static constexpr Integer integers[] = {0,
                                           1,
                                           -1,
                                           2,
                                           12,
                                           1000,
                                           std::numeric_limits<Integer>::max(),
                                           std::numeric_limits<Integer>::min()};
    return integers[below(random, std::size(integers))];
}

/// What is done with the members that an element, its children and its records store.
struct Visitor {
    std::function<void(void* object, const StoredAttribute&)> attribute;
    std::function<void(void* object, const StoredList&)> list;
    std::function<void(void* object, const StoredElement::Records&)> records; ///< before each one
};

void visit(void* object, const StoredElement& element, const Visitor& visitor) {
    for (const StoredAttribute& attribute : element.attributes()) {
        if (attribute.written != Written::ReadOnly)
            visitor.attribute(object, attribute);
    }
    if (element.ownList())
        visitor.list(object, *element.ownList());
    for (const StoredElement::Child& child : element.children())
        visit(object, child.element, visitor);
    if (const StoredElement::Records* const records = element.ownRecords()) {
        visitor.records(object, *records);
        for (size_t place = 0; place < records->count(object); ++place)
            visit(records->at(object, place), records->record, visitor);
    }
}

template <class Value>
Value& valueOf(StoredMember member, void* object) {
    return *static_cast<Value*>(member(object));
}

/// What loading makes of a number.
qint64 settled(const StoredAttribute& attribute, qint64 number) {
    return attribute.settle == nullptr ? number : attribute.settle(number);
}

void setAttribute(void* object, const StoredAttribute& attribute, Random& random) {
    switch (attribute.kind) {
    case StoredKind::Text:
        valueOf<QString>(attribute.member, object) = nastyText(random);
        break;
    case StoredKind::Integer:
        valueOf<int>(attribute.member, object) =
            static_cast<int>(settled(attribute, anyInteger<int>(random)));
        break;
    case StoredKind::LongInteger:
        valueOf<qint64>(attribute.member, object) = settled(attribute, anyInteger<qint64>(random));
        break;
    case StoredKind::Number:
        valueOf<double>(attribute.member, object) = anyNumber(random);
        break;
    case StoredKind::Boolean:
        valueOf<bool>(attribute.member, object) = below(random, 2) != 0;
        break;
    case StoredKind::Character:
        valueOf<QChar>(attribute.member, object) = QChar(u"a<'\"& ;\t\u00e9"[below(random, 9)]);
        break;
    }
}

std::string shown(const QString& text) {
    return text.isNull() ? "(null)" : '"' + text.toStdString() + '"';
}

std::string attributeText(void* object, const StoredAttribute& attribute) {
    switch (attribute.kind) {
    case StoredKind::Text:
        return '"' + valueOf<QString>(attribute.member, object).toStdString() + '"';
    case StoredKind::Integer:
        return std::to_string(valueOf<int>(attribute.member, object));
    case StoredKind::LongInteger:
        return std::to_string(valueOf<qint64>(attribute.member, object));
    case StoredKind::Number:
        return QByteArray::number(valueOf<double>(attribute.member, object), 'g', 17).toStdString();
    case StoredKind::Boolean:
        return valueOf<bool>(attribute.member, object) ? "true" : "false";
    case StoredKind::Character:
        return shown(QString(valueOf<QChar>(attribute.member, object)));
    }
    return {};
}

std::string listText(void* object, const StoredList& list) {
    std::string text;
    for (const QString& entry : valueOf<QVector<QString>>(list.member, object))
        text += shown(entry) + ' ';
    return text;
}

} // namespace

void setRandomly(ActionItem& action, unsigned seed) {
    Random random(seed);
    const int entries = below(random, 5);
    visit(&action, action.storedElement(),
          {[&](void* object, const StoredAttribute& attribute) {
               setAttribute(object, attribute, random);
           },
           [&](void* object, const StoredList& list) {
               QVector<QString>& values = valueOf<QVector<QString>>(list.member, object);
               const qsizetype length = std::max<qsizetype>(entries, values.size());
               values.clear();
               for (qsizetype i = 0; i < length; ++i)
                   values.push_back(below(random, 6) == 0 ? QString() : nastyText(random));
           },
           [&](void* object, const StoredElement::Records& records) {
               records.reset(object, static_cast<size_t>(below(random, 4)));
           }});
}

std::string differenceOfSettings(ActionItem& a, ActionItem& b) {
    std::vector<std::pair<std::string, std::string>> settings[2];
    ActionItem* const actions[] = {&a, &b};
    for (size_t i = 0; i < 2; ++i) {
        auto& told = settings[i];
        visit(actions[i], actions[i]->storedElement(),
              {[&](void* object, const StoredAttribute& attribute) {
                   told.emplace_back(attribute.name, attributeText(object, attribute));
               },
               [&](void* object, const StoredList& list) {
                   told.emplace_back(list.name, listText(object, list));
               },
               [&](void* object, const StoredElement::Records& records) {
                   told.emplace_back(records.name, std::to_string(records.count(object)));
               }});
    }
    for (size_t i = 0; i < std::min(settings[0].size(), settings[1].size()); ++i) {
        if (settings[0][i] != settings[1][i])
            return settings[0][i].first + ": " + settings[0][i].second + " became " +
                   settings[1][i].second;
    }
    return settings[0].size() == settings[1].size() ? "" : "other numbers of records";
}

} // namespace velmorra::harness
