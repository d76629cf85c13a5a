/// Atomic output: what stands in the folder after success, failure and discard, and pipes.
#include "engine/input_file.h"
#include "engine/output_file.h"
#include "tests/engine/folder_test.h"

#include <gtest/gtest.h>

#include <QtCore/QElapsedTimer>

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace velmorra;

namespace {

class OutputFileTest : public test::FolderTest {
protected:
    QByteArray bytesPath(const char* name) const { return QFile::encodeName(path(name)); }
    unsigned mode(const char* name) const {
        struct stat status = {};
        ::stat(bytesPath(name).constData(), &status);
        return status.st_mode & 0777u;
    }
};

bool writeText(OutputFile& output, const std::string& text) {
    return output.write(text.data(), qint64(text.size()));
}

} // namespace

TEST_F(OutputFileTest, AppearsWholeOnCommit) {
    OutputFile output;
    ASSERT_TRUE(output.open(path("out.csv"), {}));
    EXPECT_TRUE(writeText(output, "new"));
    EXPECT_EQ(get("out.csv"), "(none)");
    ASSERT_EQ(names().size(), 1);
    EXPECT_TRUE(names().front().startsWith(".out.csv.velmorra-"));
    EXPECT_TRUE(output.finish() && output.commit());
    EXPECT_EQ(get("out.csv"), "new");
    EXPECT_EQ(names(), QStringList{"out.csv"});
    const unsigned mask = ::umask(0);
    ::umask(mask);
    EXPECT_EQ(mode("out.csv"), 0666u & ~mask);
}

TEST_F(OutputFileTest, LeavesTheEarlierFileUntilThenAndKeepsItsMode) {
    put("old", "out.csv");
    ::chmod(bytesPath("out.csv").constData(), 0640);
    {
        OutputFile output;
        ASSERT_TRUE(output.open(path("out.csv"), {}));
        EXPECT_TRUE(writeText(output, "lost") && output.finish());
    }
    EXPECT_EQ(names(), QStringList{"out.csv"});
    EXPECT_EQ(get("out.csv"), "old");
    OutputFile output;
    ASSERT_TRUE(output.open(path("out.csv"), {}));
    EXPECT_TRUE(writeText(output, "new") && output.finish() && output.commit());
    EXPECT_EQ(get("out.csv"), "new");
    EXPECT_EQ(mode("out.csv"), 0640u);
}

TEST_F(OutputFileTest, ReplacesTheEndOfALink) {
    QDir(folder_.path()).mkdir("sub");
    ASSERT_EQ(::symlink("sub/real.csv", bytesPath("link.csv").constData()), 0);
    for (const char* text : {"created", "replaced"}) {
        OutputFile output;
        ASSERT_TRUE(output.open(path("link.csv"), {}));
        EXPECT_TRUE(writeText(output, text) && output.finish() && output.commit());
        EXPECT_EQ(get("sub/real.csv"), text);
    }
    EXPECT_TRUE(QFileInfo(path("link.csv")).isSymLink());
    ASSERT_EQ(::symlink("round.csv", bytesPath("round.csv").constData()), 0);
    OutputFile output;
    EXPECT_FALSE(output.open(path("round.csv"), {}));
    EXPECT_TRUE(output.error().contains("symbolic links"));
}

TEST_F(OutputFileTest, SaysWhyItCannotWrite) {
    const auto problem = [](const QString& name) {
        OutputFile output;
        EXPECT_FALSE(output.open(name, {}));
        return output.error().toStdString();
    };
    const std::string here = folder_.path().toStdString();
    EXPECT_EQ(problem(path("none/out.csv")),
              "cannot write '" + here + "/none/out.csv': No such file or directory");
    EXPECT_EQ(problem(folder_.path()), "cannot write '" + here + "': it is a directory");
    EXPECT_EQ(problem(""), "cannot write '': no file name given");
    put("", "file");
    EXPECT_EQ(problem(path("file/out.csv")),
              "cannot write '" + here + "/file/out.csv': Not a directory");
    OutputFile full;
    ASSERT_TRUE(full.open("/dev/full", {}));
    EXPECT_FALSE(writeText(full, "x"));
    EXPECT_FALSE(writeText(full, "y") || full.finish() || full.commit());
    EXPECT_EQ(full.error().toStdString(), "cannot write '/dev/full': No space left on device");
}

TEST_F(OutputFileTest, KeepsTheFirstErrorOfAFileThatCannotGrow) {
    put("old", "out.csv");
    struct rlimit before = {};
    ::getrlimit(RLIMIT_FSIZE, &before);
    const auto ignored = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit small = {1000, before.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &small);
    {
        OutputFile output;
        ASSERT_TRUE(output.open(path("out.csv"), {}));
        const bool written = writeText(output, std::string(5000, 'x'));
        ::setrlimit(RLIMIT_FSIZE, &before);
        std::signal(SIGXFSZ, ignored);
        EXPECT_FALSE(written || output.commit());
        EXPECT_TRUE(output.error().endsWith("File too large"));
    }
    EXPECT_EQ(get("out.csv"), "old");
    EXPECT_EQ(names(), QStringList{"out.csv"});
}

TEST_F(OutputFileTest, IsDiscardedFromAnotherThreadAtAnyTime) {
    for (int round = 0; round < 50; ++round) {
        OutputFile output;
        ASSERT_TRUE(output.open(path("out.csv"), {}));
        std::thread other([&] {
            output.discard();
            output.discard();
        });
        const bool committed = writeText(output, "x") && output.finish() && output.commit();
        other.join();
        EXPECT_EQ(get("out.csv"), committed ? "x" : "(none)");
        EXPECT_EQ(names().size(), committed ? 1 : 0);
        QFile::remove(path("out.csv"));
    }
}

TEST_F(OutputFileTest, EndsQuietlyWhenTheReaderOfAPipeHasEnough) {
    ASSERT_EQ(::mkfifo(bytesPath("pipe").constData(), 0600), 0);
    std::thread reader([&] {
        const int pipe = ::open(bytesPath("pipe").constData(), O_RDONLY);
        char byte = 0;
        EXPECT_EQ(::read(pipe, &byte, 1), 1);
        ::close(pipe);
    });
    OutputFile output;
    ASSERT_TRUE(output.open(path("pipe"), {}));
    const std::string block(1 << 20, 'x');
    while (!output.readerGone())
        ASSERT_TRUE(writeText(output, block));
    reader.join();
    EXPECT_TRUE(output.error().isNull() && output.finish() && output.commit());
    EXPECT_EQ(names(), QStringList{"pipe"});
}

TEST_F(OutputFileTest, StopsWaitingForAPipeSoon) {
    ASSERT_EQ(::mkfifo(bytesPath("pipe").constData(), 0600), 0);
    std::atomic<bool> stopped = false;
    const auto stopSoon = [&] {
        stopped = false;
        return std::thread([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            stopped = true;
        });
    };
    const StopCheck stop = [&] { return stopped.load(); };
    const auto timed = [&](auto wait) {
        std::thread stopper = stopSoon();
        QElapsedTimer timer;
        timer.start();
        wait();
        EXPECT_LT(timer.elapsed(), 200);
        stopper.join();
    };
    timed([&] {
        OutputFile output;
        EXPECT_FALSE(output.open(path("pipe"), stop));
        EXPECT_TRUE(output.error().isNull());
    });
    InputFile input;
    timed([&] {
        stopped = false;
        ASSERT_TRUE(input.open(path("pipe"), stop));
        uchar byte = 0;
        EXPECT_EQ(input.read(&byte, 1), -1);
        EXPECT_TRUE(input.error().isNull());
    });
    stopped = false;
    OutputFile output;
    ASSERT_TRUE(output.open(path("pipe"), stop));
    timed([&] {
        EXPECT_FALSE(writeText(output, std::string(1 << 22, 'x')));
        EXPECT_TRUE(output.error().isNull());
    });
}

TEST_F(OutputFileTest, InputSaysWhyItCannotRead) {
    const auto problem = [](const QString& name) {
        InputFile input;
        EXPECT_FALSE(input.open(name, {}));
        return input.error().toStdString();
    };
    const std::string here = folder_.path().toStdString();
    EXPECT_EQ(problem(path("none.csv")),
              "cannot read '" + here + "/none.csv': No such file or directory");
    EXPECT_EQ(problem(folder_.path()), "cannot read '" + here + "': it is a directory");
    put("0123456789", "in.csv");
    InputFile input;
    ASSERT_TRUE(input.open(path("in.csv"), {}));
    uchar bytes[4];
    EXPECT_EQ(input.read(bytes, 4), 4);
    EXPECT_DOUBLE_EQ(input.share(), 0.4);
    ASSERT_EQ(::truncate(bytesPath("in.csv").constData(), 4), 0);
    EXPECT_EQ(input.read(bytes, 4), -1);
    EXPECT_TRUE(input.error().contains("became shorter while it was read (4 of 10 bytes)"));
}
