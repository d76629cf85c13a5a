/// Flatten, Unflatten and Split on random tables: the first two are each other's inverse, and
/// Flatten and Split do what plain walks over rows and texts do. All of it under every
/// circumstance.
#include "tests/harness/table_check.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>

using namespace velmorra;
using namespace velmorra::harness;

namespace {

constexpr unsigned samples = 30;

class Random {
public:
    explicit Random(unsigned seed) : random_(seed) {}
    int below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }

    /// A cell as it stands in a typed table; null now and then, unless `neverNull`.
    QString cell(QChar type, bool neverNull = false) {
        if (!neverNull && below(4) == 0)
            return {};
        if (type == u'K')
            return QString::number(below(1000));
        if (type == u'F')
            return below(8) == 0 ? QStringLiteral("nan") : QString::number(below(64) / 4.0);
        return QLatin1Char('"') + QString(below(5) == 0 ? below(200) : below(4), u'x') +
               QLatin1Char('"');
    }

    QString types(int count) {
        QString letters;
        for (int i = 0; i < count; ++i)
            letters += QChar(u"KFU"[below(3)]);
        return letters;
    }

private:
    std::mt19937 random_;
};

QString named(const char* name, int number) {
    return QLatin1String(name) + QString::number(number);
}

void forEachSample(const std::function<void(Random&)>& check) {
    for (unsigned seed = 0; seed < samples && !testing::Test::HasFatalFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Random random(seed);
        check(random);
    }
}

QString listOf(const char* name, const QStringList& entries) {
    return QLatin1Char('<') + QLatin1String(name) + QLatin1String("><s>") +
           entries.join(QLatin1String("</s><s>")) + QLatin1String("</s></") + QLatin1String(name) +
           QLatin1Char('>');
}

TEST(FlattenAndUnflatten, AWideTableComesBack) {
    forEachSample([](Random& random) {
        const int categories = 1 + random.below(5);
        const QString types = random.types(1 + random.below(3));
        QStringList header = {QStringLiteral("id:K"), QStringLiteral("kept:U")};
        QStringList sets;
        QStringList names = {QStringLiteral("kind:U")};
        QStringList valueNames;
        for (int t = 0; t < types.size(); ++t)
            valueNames += named("v", t);
        for (int c = 0; c < categories; ++c) {
            QStringList columns;
            for (int t = 0; t < types.size(); ++t) {
                columns += named("c", c) + QLatin1Char('_') + valueNames[t];
                header += columns.back() + QLatin1Char(':') + types[t];
            }
            sets += QLatin1String("<set name='") + named("c", c) + QLatin1String("'><s>") +
                    columns.join(QLatin1String("</s><s>")) + QLatin1String("</s></set>");
            names += named("c", c);
        }
        QStringList wide = {header.join(QLatin1Char(','))};
        for (int row = random.below(20); row >= 0; --row) {
            QStringList cells = {QString::number(20 - row), random.cell(u'U')};
            for (int c = 0; c < categories; ++c) {
                for (const QChar type : types)
                    cells += random.cell(type);
            }
            wide += cells.join(QLatin1Char(','));
        }
        Case run;
        run.elements = {QLatin1String("<Unflatten setColumnName='kind' newNames='") +
                            valueNames.join(QLatin1Char(',')) +
                            QLatin1String("'><common><s>id</s><s>kept</s></common><sets>") +
                            sets.join(QString()) + QLatin1String("</sets></Unflatten>"),
                        QLatin1String("<Flatten key='id' category='kind' checkSort='0'>") +
                            listOf("ToTranspose", valueNames) +
                            QLatin1String("<ToKeep><s>kept</s></ToKeep></Flatten>")};
        run.inputs[{0, 0}] = tableOf(wide);
        run.inputs[{1, 1}] = tableOf(names);
        expectTable(run, wide);
    });
}

TEST(FlattenAndUnflatten, ALongTableComesBack) {
    forEachSample([](Random& random) {
        const int categories = 1 + random.below(6);
        const QChar type = random.types(1)[0];
        QStringList sets;
        QStringList names = {QStringLiteral("kind:U")};
        for (int c = 0; c < categories; ++c) {
            sets += QLatin1String("<set name='") + named("c", c) + QLatin1String("'><s>") +
                    named("c", c) + QLatin1String("</s></set>");
            names += named("c", c);
        }
        QStringList rows;
        const int ids = 1 + random.below(20);
        for (int id = 0; id < ids; ++id) {
            for (int c = 0; c < categories; ++c) {
                if (random.below(3) != 0)
                    rows += random.cell(type, true) + QLatin1Char(',') + named("c", c) +
                            QLatin1Char(',') + QString::number(id);
            }
        }
        if (rows.isEmpty())
            return;
        const QString header = QLatin1String("v:") + type + QLatin1String(",kind:U,id:K");
        Case run;
        run.elements = {
            QStringLiteral("<Flatten key='id' category='kind' alternativeNaming='2'><ToTranspose>"
                           "<s>v</s></ToTranspose></Flatten>"),
            QLatin1String("<Unflatten skipNulls='1' setColumnName='kind' newNames='v'>"
                          "<common><s>id</s></common><sets>") +
                sets.join(QString()) + QLatin1String("</sets></Unflatten>")};
        run.inputs[{0, 0}] = tableOf(QStringList{header + QLatin1String(":01")} + rows);
        run.inputs[{0, 1}] = tableOf(names);
        expectTable(run, QStringList{header} + rows);
    });
}

/// What Flatten makes of a group, cell by cell; nothing where it gives no row.
QStringList groupRow(const QString& key, const QVector<std::pair<int, QString>>& rows,
                     int categories, int groups) {
    QStringList cells(categories);
    QVector<bool> seen(categories);
    for (const auto& [category, value] : rows) {
        if (category < categories) {
            cells[category] = value;
            seen[category] = true;
        }
    }
    if ((groups == 1 && seen.contains(false)) || (groups == 2 && !seen.contains(true)))
        return {};
    return {key + QLatin1Char(',') + cells.join(QLatin1Char(','))};
}

TEST(Flatten, GivesWhatAWalkOverTheRowsGives) {
    forEachSample([](Random& random) {
        const int categories = 1 + random.below(4);
        const int groups = random.below(3);
        const QChar type = random.types(1)[0];
        QStringList names = {QStringLiteral("c:K")};
        QString header = QStringLiteral("k:K:01");
        for (int c = 0; c < categories; ++c) {
            names += QString::number(c);
            header += QLatin1Char(',') + QString::number(c) + QLatin1String("_v:") + type;
        }
        QStringList rows = {QLatin1String("k:K:01,c:K,v:") + type};
        QStringList expected = {header};
        const int keys = 1 + random.below(15);
        for (int key = 0; key < keys; ++key) {
            QVector<std::pair<int, QString>> group;
            // Categories beyond the last one aren't listed.
            for (int i = random.below(8); i >= 0; --i)
                group.push_back({random.below(categories + 2), random.cell(type)});
            for (const auto& [category, value] : group)
                rows += QString::number(key) + QLatin1Char(',') + QString::number(category) +
                        QLatin1Char(',') + value;
            expected += groupRow(QString::number(key), group, categories, groups);
        }
        Case run;
        run.elements = {QLatin1String("<Flatten key='k' category='c' outputFullyDefinedOnly='") +
                        QString::number(groups) +
                        QLatin1String("'><ToTranspose><s>v</s></ToTranspose></Flatten>")};
        run.inputs[{0, 0}] = tableOf(rows);
        run.inputs[{0, 1}] = tableOf(names);
        expectTable(run, expected);
    });
}

/// A text whose separators stand anywhere, also where a length field or a block of units ends.
QString textToSplit(Random& random, const QString& separators) {
    constexpr int sizes[] = {0, 6, 70, 130, 200, 17000};
    constexpr int distances[] = {2, 20, 20000};
    const int one = distances[random.below(3)]; // in so many units is a separator
    QString text(sizes[random.below(6)] - random.below(6), u'x');
    for (QChar& unit : text) {
        if (random.below(one) == 0)
            unit = separators[random.below(static_cast<int>(separators.size()))];
        else if (random.below(3) == 0)
            unit = u'é';
    }
    return text;
}

TEST(Split, GivesThePiecesThatStringsGive) {
    forEachSample([](Random& random) {
        const bool atLineBreaks = random.below(2) == 0;
        constexpr int columns = 4;
        QStringList rows = {QStringLiteral("x:U")};
        QStringList expected = {QStringLiteral("x:U,x_S0:U,x_S1:U,x_S2:U,x_S3:U")};
        for (int row = random.below(10); row >= 0; --row) {
            const QString text =
                textToSplit(random, atLineBreaks ? QStringLiteral("\r\n") : QStringLiteral(";"));
            QString plain = text;
            plain.replace(QLatin1String("\r\n"), QLatin1String("\n")).replace(u'\r', u'\n');
            QStringList pieces = plain.split(atLineBreaks ? u'\n' : u';').mid(0, columns);
            for (QString& piece : pieces)
                piece = QLatin1Char('"') + piece + QLatin1Char('"');
            pieces.resize(columns);
            rows += QLatin1Char('"') + text + QLatin1Char('"');
            expected += rows.back() + QLatin1Char(',') + pieces.join(QLatin1Char(','));
        }
        Case run;
        run.elements = {QLatin1String("<Split fixed='1' number='4' sep='") +
                        QLatin1String(atLineBreaks ? "LB" : ";") +
                        QLatin1String("'><s>x</s></Split>")};
        run.inputs[{0, 0}] = tableOf(rows);
        expectTable(run, expected);
    });
}

} // namespace
