/// Reads any bytes as a gel file, as they are and with checksums that fit, and as the content of a
/// block. Nothing may be read outside of what is there; rows that a file gives must be rows that
/// can be stored and come back the same.
#include "host/gel/checksum.h"
#include "host/gel/gel_reader.h"
#include "host/gel/gel_writer.h"

#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <zstd.h>

namespace {

void require(bool holds) {
    if (!holds)
        std::abort();
}

/// A file in memory that has a name.
class MemoryFile {
public:
    explicit MemoryFile(const std::string& bytes) : file_(memfd_create("gel", 0)) {
        require(write(file_, bytes.data(), bytes.size()) == ssize_t(bytes.size()));
    }
    ~MemoryFile() { close(file_); }
    QString path() const { return QStringLiteral("/proc/self/fd/%1").arg(file_); }

private:
    int file_;
};

struct Table {
    PinOutMetaData columns;
    std::vector<std::string> rows;
    bool isWhole = false;
};

Table readTable(const std::string& bytes, bool readsAhead) {
    const MemoryFile file(bytes);
    gel::GelReader reader;
    reader.open(file.path(), readsAhead, false);
    Table table{reader.columns(), {}, false};
    OneRow row;
    row.setShape(table.columns);
    while (reader.nextRow(row.cells)) {
        std::string packed(size_t(row.storedBytes()), '\0');
        row.storeAt(reinterpret_cast<uchar*>(packed.data()));
        table.rows.push_back(packed);
    }
    table.isWhole = reader.problem().isNull();
    return table;
}

std::string writeTable(const Table& table) {
    gel::GelWriter writer;
    require(writer.start(table.columns).isNull());
    OneRow row;
    row.setShape(table.columns);
    for (const std::string& packed : table.rows) {
        row.initFromBuffer(reinterpret_cast<const uchar*>(packed.data()), 0, -1);
        require(writer.add(row.cells).isNull());
    }
    writer.finish();
    return {writer.bytes(), size_t(writer.size())};
}

void checkFile(const std::string& bytes) {
    const Table table = readTable(bytes, false);
    require(readTable(bytes, true).rows == table.rows);
    if (!table.isWhole)
        return;
    const Table again = readTable(writeTable(table), false);
    require(again.isWhole && again.columns == table.columns && again.rows == table.rows);
}

template <class Number>
Number at(const std::string& bytes, size_t place) {
    return gel::load<Number>(reinterpret_cast<const uchar*>(bytes.data()) + place);
}

void put(std::string* bytes, size_t place, quint64 number) {
    gel::store(reinterpret_cast<uchar*>(bytes->data()) + place, number);
}

/// Puts checksums that fit where the parts seem to be.
std::string withChecksums(std::string bytes) {
    if (bytes.size() < gel::prefixBytes + gel::checksumBytes + gel::footerBytes)
        return bytes;
    const size_t header = gel::prefixBytes + at<quint32>(bytes, 12);
    const size_t footer = bytes.size() - gel::footerBytes;
    const quint64 index = at<quint64>(bytes, footer + 16);
    if (header + gel::checksumBytes > footer || index > footer)
        return bytes;
    quint64 sum = gel::checksum(bytes.data(), header);
    put(&bytes, header, sum);
    quint64 block = header + gel::checksumBytes;
    for (quint64 entry = index; entry + gel::indexEntryBytes <= footer;
         entry += gel::indexEntryBytes) {
        const quint32 size = at<quint32>(bytes, entry + 12);
        if (block + size <= index)
            put(&bytes, entry + 16, gel::checksum(bytes.data() + block, size));
        block += size;
    }
    const quint64 part = gel::indexPart * gel::indexEntryBytes;
    for (quint64 from = index; from < footer; from += part)
        sum = gel::checksum(bytes.data() + from, std::min<quint64>(part, footer - from), sum);
    put(&bytes, footer + 24, gel::checksum(bytes.data() + footer, 24, sum));
    return bytes;
}

/// The first bytes say types, rows and size of the cells; the others are what is compressed.
void checkBlock(const std::string& bytes) {
    constexpr size_t head = 6;
    if (bytes.size() < head)
        return;
    QVector<MetaInfo> types;
    for (int i = 0; i < 4; ++i) {
        const qint32 kinds[] = {MetaTypeKey, MetaTypeFloat, MetaTypeText};
        if (const int kind = uchar(bytes[0]) >> 2 * i & 3; kind < 3)
            types.push_back(MetaInfo(kinds[kind], -1));
    }
    std::string stored(ZSTD_compressBound(bytes.size()), '\0');
    stored.resize(
        ZSTD_compress(stored.data(), stored.size(), bytes.data() + head, bytes.size() - head, 1));
    const gel::BlockEntry entry = {quint32(uchar(bytes[1])) + 1, at<quint32>(bytes, 2) & 0xFFFFF,
                                   quint32(bytes.size() - head), quint32(stored.size()), 0};
    gel::BlockRows rows;
    if (!rows.decompress(entry, reinterpret_cast<const uchar*>(stored.data()), types))
        return;
    quint64 cellBytes = 0;
    std::vector<const uchar*> cells(size_t(types.size()));
    while (rows.rowsLeft() > 0) {
        rows.takeRow(cells.data());
        for (size_t i = 0; i < cells.size(); ++i)
            cellBytes += quint64(cell::bytes(cells[i], types[qsizetype(i)].type));
    }
    require(cellBytes == entry.cellBytes);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    checkFile(bytes);
    checkFile(withChecksums(bytes));
    checkBlock(bytes);
    return 0;
}
