/// What a host sees of the plug-in before it runs anything.
#include "tests/plugin/loaded_plugin.h"

#include "host/main_ui.h"

#include <QtCore/QDir>
#include <QtCore/QJsonObject>
#include <QtCore/QLibrary>
#include <QtCore/QPluginLoader>
#include <QtGui/QGuiApplication>
#include <QtGui/QPixmap>
#include <QtSvg/QSvgRenderer>

#include <gtest/gtest.h>

#include <set>

namespace {

/// Pictures need a user interface; the tests run without a screen.
QGuiApplication& userInterface() {
    static int count = 1;
    static char name[] = "plugin_tests";
    static char* names[] = {name, nullptr};
    static QGuiApplication application(count, names);
    return application;
}

bool hasColour(const QPixmap& picture) {
    const QImage image = picture.toImage();
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (image.pixelColor(x, y).alpha() > 0)
                return true;
        }
    }
    return false;
}

QStringList picturePaths() {
    QStringList paths;
    for (unsigned i = 0; i < unsigned(ActionIndex::Count); ++i) {
        const char* const path = catalogueEntry(ActionIndex(i)).icon;
        if (path != nullptr)
            paths.push_back(QLatin1String(path));
    }
    for (int mode = 0; mode < 12; ++mode)
        paths.push_back(QLatin1String(joinIcon(mode)));
    return paths;
}

/// Remembers which help page was asked for.
class HelpWatcher : public MainUI {
public:
    QWidget* window() override { return nullptr; }
    void showHelp(const QString& key, const QString& anchor) override { asked = key + anchor; }
    void takeLog(const Message&) override {}
    QString asked;
};

} // namespace

TEST(Plugin, isCastToItsClassAndItsInterface) {
    QObject& object = pluginObject();
    EXPECT_EQ(object.qt_metacast("MyVelmorraStdPlugins"), &object);
    VelmorraPluginInterface* const interface = qobject_cast<VelmorraPluginInterface*>(&object);
    ASSERT_NE(interface, nullptr);
    EXPECT_EQ(object.qt_metacast("VelmorraPluginInterface"), interface);
    EXPECT_EQ(object.qt_metacast("VelmorraPluginInterface/1.0"), interface);
    EXPECT_EQ(object.qt_metacast("QObject"), &object);
    EXPECT_EQ(object.qt_metacast("VelmorraPluginInterface/2.0"), nullptr);
}

TEST(Plugin, givesItsFixedAnswers) {
    VelmorraPluginInterface& interface = plugin();
    EXPECT_EQ(interface.pluginVersion(), 4.2);
    EXPECT_EQ(interface.pluginReservedA(), nullptr);
    EXPECT_EQ(interface.pluginReservedB(), nullptr);
    EXPECT_EQ(interface.pluginFromXML(XMLNode::parse("<Accumulator/>").root), nullptr);
}

TEST(Plugin, carriesBothKindsOfLoaderData) {
    QPluginLoader loader(pluginFile());
    EXPECT_EQ(loader.metaData().value(QLatin1String("IID")).toString(),
              QLatin1String("VelmorraPluginInterface/1.0"));

    QLibrary library(pluginFile());
    const auto query =
        reinterpret_cast<const char* (*)()>(library.resolve("qt_plugin_query_verification_data"));
    ASSERT_NE(query, nullptr);
    const QStringList lines = QString::fromLatin1(query()).split(QLatin1Char('\n'));
    ASSERT_EQ(lines.size(), 4);
    EXPECT_EQ(lines[0], QLatin1String("pattern=QT_PLUGIN_VERIFICATION_DATA"));
    EXPECT_EQ(lines[1], QLatin1String("version=4.8.7"));
    EXPECT_EQ(lines[2], QLatin1String("debug=false"));
    EXPECT_TRUE(lines[3].startsWith(QLatin1String("buildkey="))) << qPrintable(lines[3]);
}

TEST(Factory, givesEachActionAtItsPlaceOfTheCatalogue) {
    int built = 0;
    for (unsigned i = 0; i < unsigned(ActionIndex::Count); ++i) {
        const std::unique_ptr<ActionItem> action(plugin().newAction(i, 77));
        if (action == nullptr)
            continue;
        ++built;
        EXPECT_STREQ(action->actionName(), catalogueEntry(ActionIndex(i)).name);
        EXPECT_EQ(action->globalParameters, nullptr);
    }
    EXPECT_GE(built, 3);
    for (const unsigned beyond : {26u, 27u, 255u, 0xFFFFFFFFu})
        EXPECT_EQ(plugin().newAction(beyond, 0), nullptr) << beyond;
}

TEST(Catalogue, isInTheOrderOfItsIndices) {
    for (unsigned i = 0; i < unsigned(ActionIndex::Count); ++i)
        EXPECT_EQ(unsigned(catalogueEntry(ActionIndex(i)).index), i);
    EXPECT_EQ(unsigned(ActionIndex::Count), 26u);
}

TEST(Catalogue, answersForAnAction) {
    const std::unique_ptr<ActionItem> action(
        plugin().newAction(unsigned(ActionIndex::ColumnRename), 0));
    EXPECT_EQ(action->actionDescription(),
              QLatin1String("Rename columns (and add missing columns)"));
    EXPECT_EQ(action->actionCategories(), QStringList({"150_Standard", "200_Cleaning"}));
    EXPECT_EQ(action->actionKeywords(), QStringList({"rename", "column", "add", "missing"}));

    HelpWatcher watcher;
    action->showActionHelp();
    EXPECT_EQ(watcher.asked, QLatin1String("5_5_13_column_rename_high_spee"));
}

TEST(Icons, ofTheWholeCatalogueCanBeDrawn) {
    userInterface();
    plugin();
    for (const QString& path : picturePaths()) {
        if (path.endsWith(QLatin1String(".png"))) {
            EXPECT_TRUE(hasColour(QPixmap(path))) << qPrintable(path);
            continue;
        }
        QSvgRenderer renderer(path);
        EXPECT_TRUE(renderer.isValid()) << qPrintable(path);
    }
    EXPECT_EQ(joinIcon(12), nullptr);
    EXPECT_EQ(joinIcon(-1), nullptr);
}

TEST(Icons, ofJoinGoWithItsMode) {
    userInterface();
    GlobalParameters parameters;
    std::set<QPixmap*> pictures;
    for (int mode = 0; mode <= 12; ++mode) {
        const QByteArray element = "<Join joinMode='" + QByteArray::number(mode) + "'/>";
        pictures.insert(
            boxFrom(ActionIndex::Join, element.constData(), parameters)->actionIcon(32));
    }
    // Eight pictures, and none for a mode that doesn't exist.
    EXPECT_EQ(pictures.size(), 9u);
    EXPECT_EQ(pictures.count(nullptr), 1u);
}

TEST(Icons, areKeptAndDrawnAgainAtAnotherSize) {
    userInterface();
    const std::unique_ptr<ActionItem> one(
        plugin().newAction(unsigned(ActionIndex::SelectColumns), 0));
    const std::unique_ptr<ActionItem> other(
        plugin().newAction(unsigned(ActionIndex::SelectColumns), 0));
    QPixmap* const small = one->actionIcon(32);
    ASSERT_NE(small, nullptr);
    EXPECT_EQ(small->size(), QSize(32, 32));
    EXPECT_TRUE(hasColour(*small));
    const qint64 drawn = small->cacheKey();
    EXPECT_EQ(other->actionIcon(32), small);
    EXPECT_EQ(small->cacheKey(), drawn);
    EXPECT_EQ(other->actionIcon(64)->size(), QSize(64, 64));
}
