/// Runs with threads beside their own: the same as with one, whatever happens when.
#include "engine/boxes/read_csv.h"
#include "engine/boxes/write_csv.h"
#include "engine/run.h"
#include "tests/engine/folder_test.h"
#include "tests/engine/scripted_box.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <optional>
#include <random>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace velmorra;
using namespace velmorra::test;
using std::chrono::milliseconds;

namespace {

/// Notes a warning at every row whose number is a multiple of `every`.
Script remark(qint64 every) {
    Script script = pass();
    script.step = [every](ScriptedBox& box) {
        const OneRow* const in = box.getNextRowFromInPin(0);
        if (in == nullptr)
            return true;
        if (++box.steps % every == 0)
            MainUI::addLog(3, QStringLiteral("row ") + QString::number(box.steps));
        box.getOutputRowForOutputPin(0)->copyFrom(*in);
        box.setRowReadyForOutput(0);
        return false;
    };
    return script;
}

class SideThreadsTest : public FolderTest {
protected:
    std::string take(const char* name) const {
        const std::string text = get(name);
        QFile::remove(path(name));
        return text;
    }

    ReadCsv& addReader(Graph& graph) const {
        auto box = std::make_unique<ReadCsv>(XMLNode::emptyNode(), &graph.parameters);
        box->file = path("in.csv");
        ReadCsv& reader = *box;
        graph.addBox(std::move(box));
        return reader;
    }
    WriteCsv& addWriter(Graph& graph, int from, const QString& file) const {
        auto box = std::make_unique<WriteCsv>(XMLNode::emptyNode(), &graph.parameters);
        box->file = file;
        WriteCsv& writer = *box;
        graph.addLink({from, 0, graph.addBox(std::move(box)), 0});
        return writer;
    }

    /// Runs the graph and tells everything that can be seen of it.
    std::string run(Graph& graph, const RunOptions& options) const {
        KeptMessages messages;
        std::string seen =
            std::to_string(static_cast<int>(velmorra::Run(graph, messages, options).execute()));
        for (const std::string& line : messages.lines)
            seen += '\n' + line;
        for (const char* const name : {"out.csv", "second.csv", "bad.csv"})
            seen += std::string("\n--- ") + name + '\n' + take(name);
        EXPECT_TRUE(QDir(folder_.path()).entryList({".*"}, QDir::Files | QDir::Hidden).isEmpty());
        return seen;
    }
};

std::string randomTable(std::mt19937& random) {
    const auto one = [&](unsigned of) { return random() % of == 0; };
    std::string text = "id,text\n";
    for (unsigned row = 0, rows = random() % 400; row < rows; ++row) {
        text += std::to_string(row) + ',';
        text += one(9) ? "\"a\nb,\"\"\"" : one(7) ? "\xC3\xA9" : std::string(random() % 12, 'x');
        if (one(300))
            text += one(2) ? ",surplus" : "\"stray";
        else if (one(300))
            text += "\xE2\x82\xAC \xD0\x96"; // of which Windows-1252 has the first
        else if (one(400))
            text += '\xFF';
        text += '\n';
    }
    return text;
}

} // namespace

TEST_F(SideThreadsTest, changeNothingThatCanBeSeen) {
    for (unsigned seed = 0; seed < 80; ++seed) {
        std::mt19937 random(seed);
        put(randomTable(random));
        const unsigned choices = random();
        const auto build = [&](Graph& graph) {
            ReadCsv& reader = addReader(graph);
            const int warner = addScript(graph, remark(1 + choices / 512 % 100));
            graph.addLink({0, 0, warner, 0});
            WriteCsv& writer = addWriter(graph, warner, path("out.csv"));
            if ((choices & 1) != 0)
                reader.types = QStringLiteral("id:K");
            if ((choices & 2) != 0)
                reader.sorted =
                    (choices & 4) != 0 ? QStringLiteral("id:0") : QStringLiteral("id:A");
            if ((choices & 8) != 0)
                reader.rejects = path("bad.csv");
            if ((choices & 16) != 0)
                writer.limit = choices / 64 % 300;
            if ((choices & 32) != 0)
                writer.encoding = QStringLiteral("windows-1252");
            if ((choices & 64) != 0)
                addWriter(graph, 0, path("second.csv")).encoding = QStringLiteral("utf-16");
        };
        std::string expected;
        for (const int threads : {1, 2, 3, 8}) {
            Graph graph;
            build(graph);
            RunOptions options;
            options.threads = threads;
            options.smallPieces = true;
            const std::string seen = run(graph, options);
            if (threads == 1)
                expected = seen;
            ASSERT_EQ(seen, expected) << "seed " << seed << ", threads " << threads;
        }
    }
}

/// The first block can't be written; behind it stands a broken row, and messages all along. What
/// ends the run with one thread ends it with any number, and nothing is told that came later.
TEST_F(SideThreadsTest, tellFailedWritesWhereTheyBelong) {
    std::string text = "id,text\n";
    for (int row = 0; row < 60000; ++row)
        text += std::to_string(row) + (row == 59000 ? ",a,b\n" : ",some text to fill blocks\n");
    put(text);
    for (const char* const second : {"", "/dev/full"}) {
        std::string expected;
        for (const int threads : {1, 2, 3, 8}) {
            Graph graph;
            addReader(graph);
            const int warner = addScript(graph, remark(1000));
            graph.addLink({0, 0, warner, 0});
            addWriter(graph, warner, path("out.csv"));
            if (*second != 0)
                addWriter(graph, warner, QLatin1String(second)).typed = true;
            addWriter(graph, warner, QStringLiteral("/dev/full"));
            RunOptions options;
            options.threads = threads;
            const std::string seen = run(graph, options);
            if (threads == 1)
                expected = seen;
            EXPECT_EQ(seen, expected) << "threads " << threads;
        }
        EXPECT_NE(expected.find("No space left"), std::string::npos);
        EXPECT_EQ(expected.find("surplus"), std::string::npos);
    }
}

namespace {

/// A named pipe that a thread of the test writes to without waiting for anybody.
class Pipe {
public:
    explicit Pipe(const QString& path) : name_(QFile::encodeName(path)) {
        ::mkfifo(name_.constData(), 0600);
        file_ = ::open(name_.constData(), O_RDWR | O_NONBLOCK);
    }
    ~Pipe() { ::close(file_); }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    /// Up to 4096 bytes go whole or, while the pipe is full, not at all.
    void write(const std::string& text) const {
        if (::write(file_, text.data(), text.size()) < 0)
            std::this_thread::sleep_for(milliseconds(1));
    }

private:
    QByteArray name_;
    int file_ = -1;
};

} // namespace

/// Each row is written only when the one before has arrived; the sink ends an input without end.
TEST_F(SideThreadsTest, handRowsOfAPipeOnAsTheyCome) {
    Pipe pipe(path("in.csv"));
    Graph graph;
    addReader(graph).types = QStringLiteral("n:K");
    constexpr quint32 rows = 200;
    std::atomic<quint32> arrived{0};
    Script counting{.pinsIn = 1, .pinsOut = 0, .step = nullptr};
    counting.step = [&](ScriptedBox& box) {
        const OneRow* const in = box.getNextRowFromInPin(0);
        if (in != nullptr)
            arrived = cell::loadKey(in->cells[0]);
        return in == nullptr || arrived == rows;
    };
    graph.addLink({0, 0, addScript(graph, counting), 0});
    std::thread writer([&] {
        pipe.write("n\n");
        for (quint32 row = 1; row <= rows; ++row) {
            pipe.write(std::to_string(row) + '\n');
            while (arrived != row)
                std::this_thread::yield();
        }
    });
    KeptMessages messages;
    RunOptions options;
    options.threads = 3;
    EXPECT_EQ(velmorra::Run(graph, messages, options).execute(), RunOutcome::Done);
    writer.join();
}

TEST_F(SideThreadsTest, readLittleMoreThanALookNeeds) {
    std::string text = "a\n";
    while (text.size() < (20 << 20))
        text += "some text\n";
    put(text);
    for (const auto& [limit, mostRead] : {std::pair(20, 0.02), std::pair(3000, 0.05)}) {
        Graph graph;
        addReader(graph);
        addWriter(graph, 0, path("out.csv")).limit = limit;
        KeptMessages messages;
        RunOptions options;
        options.threads = 4;
        velmorra::Run running(graph, messages, options);
        EXPECT_EQ(running.execute(), RunOutcome::Done);
        EXPECT_LT(running.completion(), mostRead);
    }
}

/// From a pipe that never ends, or falls silent, to one that nobody empties, or to files.
TEST_F(SideThreadsTest, endSoonAfterACancelAtAnyMoment) {
    for (unsigned round = 0; round < 40; ++round) {
        std::mt19937 random(round);
        const bool silent = round % 4 == 0;
        const bool blocked = round % 4 == 1;
        QFile::remove(path("in.csv"));
        Pipe pipe(path("in.csv"));
        Graph graph;
        addReader(graph);
        const int warner = addScript(graph, remark(500));
        graph.addLink({0, 0, warner, 0});
        addWriter(graph, warner, path("out.csv"));
        int drain[2] = {-1, -1};
        ASSERT_EQ(::pipe(drain), 0);
        const QString pipeName = QStringLiteral("/dev/fd/") + QString::number(drain[1]);
        addWriter(graph, warner, blocked ? pipeName : path("second.csv"));
        KeptMessages messages;
        RunOptions options;
        options.threads = 2 + int(round % 3);
        options.smallPieces = round % 2 == 0;
        std::optional<velmorra::Run> running(std::in_place, graph, messages, options);
        std::atomic<bool> ended{false};
        std::thread writer([&] {
            std::string rows;
            for (int i = 0; i < 150; ++i)
                rows += "1,some text\n2,\"a\nb\"\n";
            pipe.write("id,text\n");
            do {
                pipe.write(rows);
            } while (!ended && !silent);
        });
        std::chrono::steady_clock::time_point cancelled;
        std::thread canceller([&] {
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 30000));
            cancelled = std::chrono::steady_clock::now();
            running->cancel();
        });
        EXPECT_EQ(running->execute(), RunOutcome::Cancelled);
        const auto taken = std::chrono::steady_clock::now() - cancelled;
        ended = true;
        running.reset();
        canceller.join();
        writer.join();
        ::close(drain[0]);
        ::close(drain[1]);
        EXPECT_LT(taken, milliseconds(200));
        EXPECT_EQ(take("out.csv") + take("second.csv"), "(none)(none)");
        EXPECT_TRUE(QDir(folder_.path()).entryList({".*"}, QDir::Files | QDir::Hidden).isEmpty());
    }
}
