/// A folder of files for the tests of one suite.
#pragma once

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>

#include <gtest/gtest.h>

namespace velmorra::test {

class FolderTest : public testing::Test {
protected:
    QString path(const char* name) const { return folder_.filePath(QLatin1String(name)); }
    void put(const std::string& text, const char* name = "in.csv") const {
        QFile file(path(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text.data(), qint64(text.size()));
    }
    std::string get(const char* name = "out.csv") const {
        QFile file(path(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll().toStdString() : "(none)";
    }
    QStringList names() const {
        return QDir(folder_.path())
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }

    QTemporaryDir folder_;
};

} // namespace velmorra::test
