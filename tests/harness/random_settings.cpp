#include "tests/harness/random_settings.h"

#include <functional>
#include <limits>
#include <random>

namespace harness {

namespace {

using Random = std::mt19937;

int below(Random& random, int limit) {
    return static_cast<int>(random() % static_cast<unsigned>(limit));
}

/// Texts that escaping, splitting and formatting are likely to get wrong.
QString nastyText(Random& random) {
    static const QStringList pieces = {
        QStringLiteral("a"),          QStringLiteral(" "),      QStringLiteral("'"),
        QStringLiteral("\""),         QStringLiteral("&"),      QStringLiteral("&amp;"),
        QStringLiteral("<"),          QStringLiteral(">"),      QStringLiteral("]]>"),
        QStringLiteral("%1"),         QStringLiteral("\t"),     QStringLiteral("\n"),
        QStringLiteral("\r"),         QStringLiteral("\r\n"),   QStringLiteral("${x}"),
        QStringLiteral(":/"),         QStringLiteral("\u00e9"), QStringLiteral("\u00a0"),
        QStringLiteral("\u4e2d"),     QStringLiteral("<!--"),   QStringLiteral("</s>"),
        QStringLiteral("\U0001F600"), QStringLiteral("0"),      QStringLiteral(","),
    };
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

/// What is done with the members that an element and its children store.
struct Visitor {
    std::function<void(const StoredAttribute&)> attribute;
    std::function<void(const StoredList&)> list;
};

void visit(const StoredElement& element, const Visitor& visitor) {
    for (const StoredAttribute& attribute : element.attributes()) {
        if (attribute.written != Written::ReadOnly)
            visitor.attribute(attribute);
    }
    if (element.ownList())
        visitor.list(*element.ownList());
    for (const StoredElement::Child& child : element.children())
        visit(child.element, visitor);
}

template <class Value>
Value& valueOf(StoredMember member, ActionItem& action) {
    return *static_cast<Value*>(member(&action));
}

/// What loading makes of a number.
qint64 settled(const StoredAttribute& attribute, qint64 number) {
    return attribute.settle == nullptr ? number : attribute.settle(number);
}

void setAttribute(ActionItem& action, const StoredAttribute& attribute, Random& random) {
    switch (attribute.kind) {
    case StoredKind::Text:
        valueOf<QString>(attribute.member, action) = nastyText(random);
        break;
    case StoredKind::Integer:
        valueOf<int>(attribute.member, action) =
            static_cast<int>(settled(attribute, anyInteger<int>(random)));
        break;
    case StoredKind::LongInteger:
        valueOf<qint64>(attribute.member, action) = settled(attribute, anyInteger<qint64>(random));
        break;
    case StoredKind::Number:
        valueOf<double>(attribute.member, action) = anyNumber(random);
        break;
    case StoredKind::Boolean:
        valueOf<bool>(attribute.member, action) = below(random, 2) != 0;
        break;
    case StoredKind::Character:
        valueOf<QChar>(attribute.member, action) = QChar(u"a<'\"& ;\t\u00e9"[below(random, 9)]);
        break;
    }
}

std::string shown(const QString& text) {
    return text.isNull() ? "(null)" : '"' + text.toStdString() + '"';
}

std::string attributeText(ActionItem& action, const StoredAttribute& attribute) {
    switch (attribute.kind) {
    case StoredKind::Text:
        return '"' + valueOf<QString>(attribute.member, action).toStdString() + '"';
    case StoredKind::Integer:
        return std::to_string(valueOf<int>(attribute.member, action));
    case StoredKind::LongInteger:
        return std::to_string(valueOf<qint64>(attribute.member, action));
    case StoredKind::Number:
        return QByteArray::number(valueOf<double>(attribute.member, action), 'g', 17).toStdString();
    case StoredKind::Boolean:
        return valueOf<bool>(attribute.member, action) ? "true" : "false";
    case StoredKind::Character:
        return shown(QString(valueOf<QChar>(attribute.member, action)));
    }
    return {};
}

std::string listText(ActionItem& action, const StoredList& list) {
    std::string text;
    for (const QString& entry : valueOf<QVector<QString>>(list.member, action))
        text += shown(entry) + ' ';
    return text;
}

} // namespace

void setRandomly(ActionItem& action, unsigned seed) {
    Random random(seed);
    const int entries = below(random, 5);
    visit(action.storedElement(),
          {[&](const StoredAttribute& attribute) { setAttribute(action, attribute, random); },
           [&](const StoredList& list) {
               QVector<QString>& values = valueOf<QVector<QString>>(list.member, action);
               values.clear();
               for (int i = 0; i < entries; ++i)
                   values.push_back(below(random, 6) == 0 ? QString() : nastyText(random));
           }});
}

std::string differenceOfSettings(ActionItem& a, ActionItem& b) {
    std::string difference;
    const auto compare = [&](const char* name, const std::string& ofA, const std::string& ofB) {
        if (difference.empty() && ofA != ofB)
            difference = std::string(name) + ": " + ofA + " became " + ofB;
    };
    visit(a.storedElement(), {[&](const StoredAttribute& attribute) {
                                  compare(attribute.name, attributeText(a, attribute),
                                          attributeText(b, attribute));
                              },
                              [&](const StoredList& list) {
                                  compare(list.name, listText(a, list), listText(b, list));
                              }});
    return difference;
}

} // namespace harness
