/// Parses any bytes as CSV, in large and in tiny pieces: the results must agree, and what was read
/// as text must read back the same when it is written. Where broken rows are rejected, nothing ends
/// the table; bytes in another encoding come back as they stood.
#include "../engine/csv_text.h"

#include "engine/csv/csv_formatter.h"

#include <cstdlib>

using namespace velmorra;

namespace {

struct Result : CsvRead {
    std::string written;
    std::string rejected;
};

struct Rejects : RejectedRows {
    void begin(const QString&) override { bytes += '|'; }
    bool take(const uchar* more, qsizetype size) override {
        bytes.append(reinterpret_cast<const char*>(more), size_t(size));
        return true;
    }
    QString failure() const override { return {}; }
    std::string bytes;
};

Result parse(const std::string& bytes, qint64 piece, int rows, bool typed,
             CsvSettings settings = {}, bool rejecting = false) {
    settings.fieldLimit = 4096;
    CsvWays ways{.piece = piece, .settings = settings, .rowsAtATime = rows};
    Rejects rejects;
    if (rejecting)
        ways.rejects = &rejects;
    const int count = CsvParser(bytesSource(bytes, piece), {}, settings).readFirstRow().columns;
    PinOutMetaData shape;
    ways.columns = columnsOf(std::string(size_t(std::max(count, 1)), 'U'));
    for (size_t c = 0; c < ways.columns.size(); ++c) {
        ways.columns[c].metaType = typed ? "UKF"[c % 3] : 'U';
        ways.columns[c].wanted = !typed || c % 5 != 4;
        shape.types.push_back(MetaInfo(ways.columns[c].metaType, -1));
    }
    ways.header = false;
    if (typed)
        ways.sort = {{0, SortTextRising}};
    CsvFormatter formatter;
    formatter.setColumns(shape);
    Result result;
    static_cast<CsvRead&>(result) =
        readCsv(bytes, ways, [&](const uchar* const* row) { formatter.writeRow(row); });
    result.rejected = rejects.bytes;
    result.written.assign(formatter.bytes(), size_t(formatter.size()));
    return result;
}

void require(bool holds) {
    if (!holds)
        std::abort();
}

/// A dialect by a byte of the input, so that the search finds them all.
CsvSettings dialectBy(unsigned char byte) {
    CsvSettings settings;
    const char delimiters[] = {',', ';', '\t', '|'};
    const char quotes[] = {'"', '\'', CsvSettings::noQuote, '"'};
    settings.delimiter = delimiters[byte & 3];
    settings.quote = quotes[byte >> 2 & 3];
    if ((byte & 16) != 0)
        settings.comment = "#";
    settings.decimal = (byte & 32) != 0 ? ',' : '.';
    return settings;
}

void checkRejects(const std::string& bytes, const CsvSettings& settings) {
    const Result whole = parse(bytes, 1 << 20, RowBatch::maxRows, true, settings, true);
    const Result pieces = parse(bytes, 3, 2, true, settings, true);
    require(whole.rows == pieces.rows && whole.rejected == pieces.rejected);
    require(whole.problem.empty() == pieces.problem.empty());
    const bool headerRead = !whole.rows.empty() || !whole.rejected.empty();
    require(!headerRead || whole.problem.empty());
}

void checkEncoding(const std::string& bytes, TextEncoding encoding) {
    TextDecoder decoder(encoding, bytesSource(bytes, 5));
    std::string decoded;
    uchar part[32];
    qint64 got = 1;
    while (got > 0) {
        got = decoder.read(part, sizeof part);
        decoded.append(reinterpret_cast<const char*>(part), size_t(got > 0 ? got : 0));
    }
    if (got < 0)
        return;
    QByteArray back;
    require(encodeText(encoding, decoded.data(), qsizetype(decoded.size()), &back) == -1);
    require(back.toStdString() == bytes.substr(decoder.hadMark() ? 2 : 0));
    parse(decoded, 1 << 20, RowBatch::maxRows, false);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    for (const bool typed : {false, true}) {
        const Result whole = parse(bytes, 1 << 20, RowBatch::maxRows, typed);
        const Result pieces = parse(bytes, 3, 2, typed);
        require(whole.rows == pieces.rows);
        require(whole.problem.empty() == pieces.problem.empty());
        if (!typed) {
            const Result again = parse(whole.written, 1 << 20, RowBatch::maxRows, false);
            require(again.problem.empty() && again.rows == whole.rows);
        }
    }
    checkRejects(bytes, dialectBy(size > 0 ? data[size - 1] : 0));
    checkRejects(bytes, {});
    for (const TextEncoding encoding : {TextEncoding::Windows1252, TextEncoding::Utf16Le})
        checkEncoding(bytes, encoding);
    return 0;
}
