#include "engine/csv/csv_proposal.h"

#include "engine/csv/dialect.h"
#include "engine/csv/field_value.h"
#include "engine/csv/reject_file.h"
#include "engine/csv/transcode.h"
#include "host/row_buffer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace velmorra {

namespace {

/// Rows that don't fit, in parts of all, that a tolerant proposal puts up with.
constexpr int toleratedPart = 10;

/// The rows of a sample, as texts.
class SampleRows {
public:
    SampleRows(const CsvSample& sample, const CsvSettings& settings)
        : sample_(sample),
          // What was cut off behind the last line end is no row.
          end_(sample.whole ? sample.bytes.size() : sample.bytes.lastIndexOf('\n') + 1),
          parser_([this](uchar* bytes, qint64 room) { return read(bytes, room); }, QString(),
                  settings) {
        if (end_ == 0)
            end_ = sample.bytes.size();
        parser_.rejectTo(&rejects_);
        const RowBatch& first = parser_.readFirstRow();
        columns_ = first.end == BatchEnd::Failed ? 0 : first.columns;
    }

    int columns() const { return columns_; }
    /// Rows so far that don't have as many columns as the first, or are broken.
    qint64 broken() const { return rejects_.rows; }

    /// Calls `take(cells)` for each row; the first row is one where there is no header.
    template <class Take>
    void forEach(bool header, Take take) {
        if (columns_ == 0)
            return;
        std::vector<CsvColumn> columns(static_cast<size_t>(columns_));
        parser_.setColumns(std::move(columns), {}, !header);
        RowBatch batch;
        int left = CsvSample::mostRows;
        do {
            parser_.fill(batch, left);
            for (int i = 0; i < batch.rows; ++i)
                take(batch.row(i));
            left -= batch.rows;
        } while (batch.end == BatchEnd::More && left > 0);
    }

private:
    qint64 read(uchar* bytes, qint64 room) {
        const qsizetype count = std::min<qsizetype>(room, end_ - at_);
        std::memcpy(bytes, sample_.bytes.constData() + at_, size_t(count));
        at_ += count;
        return count;
    }

    const CsvSample& sample_;
    qsizetype end_;
    qsizetype at_ = 0;
    CountedRejects rejects_;
    CsvParser parser_;
    int columns_ = 0;
};

/// What a text looks like as a number.
struct NumberForm {
    bool number = false;
    bool negative = false;
    bool fraction = false; ///< has a decimal sign
    bool exponent = false;
    int wholeDigits = 0;
    int fractionDigits = 0;
    int digits = 0; ///< in front of the exponent, without zeros at the beginning
};

/// `[-]digits[point digits][e[sign]digits]`, without zeros in front of other digits.
NumberForm numberForm(const QByteArray& text, char decimal) {
    NumberForm form;
    const char* at = text.constData();
    const auto isDigit = [&] { return *at >= '0' && *at <= '9'; };
    form.negative = *at == '-';
    at += form.negative ? 1 : 0;
    const bool zero = *at == '0';
    const auto countDigits = [&] {
        int count = 0;
        for (; isDigit(); ++at, ++count)
            form.digits += form.digits > 0 || *at != '0' ? 1 : 0;
        return count;
    };
    form.wholeDigits = countDigits();
    if (form.wholeDigits == 0 || (zero && form.wholeDigits > 1))
        return form;
    if (*at == decimal) {
        ++at;
        form.fraction = true;
        form.fractionDigits = countDigits();
        if (form.fractionDigits == 0)
            return form;
    }
    if (*at == 'e' || *at == 'E') {
        ++at;
        form.exponent = true;
        at += *at == '+' || *at == '-' ? 1 : 0;
        if (!isDigit())
            return form;
        while (isDigit())
            ++at;
    }
    form.number = at == text.constData() + text.size();
    return form;
}

/// What the values of a column have in common.
struct ColumnForm {
    bool any = false;
    bool numbers = true;
    bool keys = true;
    bool fractions = false;
    bool doubtful = false; ///< numbers only beside others with a fraction: 12E5, or beyond Key
    bool thousands = true; ///< every fraction has three digits

    void take(const QByteArray& text, char decimal) {
        // More digits than a double holds would not come back.
        constexpr int mostDigits = 15;
        any = true;
        const NumberForm form = numberForm(text, decimal);
        numbers = numbers && form.number && form.digits <= mostDigits;
        if (!numbers)
            return;
        fractions |= form.fraction;
        thousands = thousands && (!form.fraction || form.fractionDigits == 3);
        quint32 key = 0;
        const bool isKey = readKey(reinterpret_cast<const uchar*>(text.constData()), text.size(),
                                   largestDeclaredKey, &key);
        keys = keys && isKey;
        doubtful |= !form.fraction && (form.exponent || form.digits > 10 ||
                                       std::abs(text.toDouble()) > largestDeclaredKey);
    }

    qint32 metaType() const {
        if (!any || !numbers)
            return MetaTypeText;
        if (keys)
            return MetaTypeKey;
        return doubtful && !fractions ? MetaTypeText : MetaTypeFloat;
    }
};

bool looksLikeUtf16(const QByteArray& bytes, int zeroAt) {
    // Mostly Latin text: every other byte is 0, and hardly any of the others.
    qsizetype zeros[2] = {};
    for (qsizetype i = 0; i < bytes.size(); ++i)
        zeros[i & 1] += bytes[i] == 0 ? 1 : 0;
    const qsizetype half = bytes.size() / 2;
    return half > 0 && zeros[zeroAt] > half / 2 && zeros[1 - zeroAt] < half / 10 + 1;
}

/// Whether bytes are UTF-8, but for a character that the sample's end may have cut.
bool isUtf8(const CsvSample& raw) {
    const uchar* const bytes = reinterpret_cast<const uchar*>(raw.bytes.constData());
    const qsizetype size = raw.bytes.size();
    for (qsizetype i = 0; i < size;) {
        int length = 1;
        if (bytes[i] >= 0x80 && characterAt(bytes + i, size - i, &length) == 0)
            return !raw.whole && size - i < 4 && bytes[i] >= 0xC2;
        i += length;
    }
    return true;
}

} // namespace

QString proposeEncoding(const CsvSample& raw, TextEncoding* encoding) {
    const QString mark =
        encodingOfMark(reinterpret_cast<const uchar*>(raw.bytes.constData()), raw.bytes.size());
    if (!mark.isNull())
        return parseEncodingSetting(mark, encoding);
    if (looksLikeUtf16(raw.bytes, 1)) {
        *encoding = TextEncoding::Utf16Le;
    } else if (looksLikeUtf16(raw.bytes, 0)) {
        *encoding = TextEncoding::Utf16Be;
    } else if (isUtf8(raw)) {
        *encoding = TextEncoding::Utf8;
    } else {
        const bool windows = std::none_of(raw.bytes.begin(), raw.bytes.end(), [](char c) {
            const uchar byte = static_cast<uchar>(c);
            return (byte < 0x20 && byte != '\t' && byte != '\r' && byte != '\n') || byte == 0x81 ||
                   byte == 0x8D || byte == 0x8F || byte == 0x90 || byte == 0x9D;
        });
        if (!windows)
            return QStringLiteral("encoding='auto' finds no encoding that the file's beginning is "
                                  "in; is this a text file?");
        *encoding = TextEncoding::Windows1252;
    }
    return {};
}

QString proposeDelimiter(const CsvSample& sample, const CsvSettings& settings, bool tolerant,
                         char* delimiter) {
    constexpr char candidates[] = {',', ';', '\t', '|'};
    QString fitting;
    int count = 0;
    bool several = false;
    for (const char candidate : candidates) {
        CsvSettings format = settings;
        format.delimiter = candidate;
        if (!checkDialect(format).isNull())
            continue;
        SampleRows rows(sample, format);
        qint64 good = 0;
        rows.forEach(true, [&](const uchar* const*) { ++good; });
        several |= rows.columns() > 1 || rows.broken() > 0;
        const bool fits =
            rows.columns() > 1 && rows.broken() * toleratedPart <= (tolerant ? good : 0);
        if (!fits)
            continue;
        *delimiter = candidate;
        ++count;
        fitting += (fitting.isEmpty() ? QString() : QStringLiteral(", ")) +
                   delimiterText(candidate) + QStringLiteral(" (") +
                   QString::number(rows.columns()) + QStringLiteral(" columns)");
    }
    if (count == 1)
        return {};
    // A file of one column has no delimiter: any will do.
    if (!several) {
        *delimiter = candidates[0];
        return {};
    }
    if (count == 0)
        return QStringLiteral("delimiter='auto' finds none that gives all rows the same columns: "
                              "set delimiter");
    return QStringLiteral("delimiter='auto' can't decide, since several fit: ") + fitting +
           QStringLiteral("; set delimiter");
}

QString proposeDecimal(const CsvSample& sample, const CsvSettings& settings, bool header,
                       char* decimal) {
    struct Fractions {
        ColumnForm point;
        ColumnForm comma;
    };
    SampleRows rows(sample, settings);
    std::vector<Fractions> columns(static_cast<size_t>(rows.columns()));
    rows.forEach(header, [&](const uchar* const* cells) {
        for (size_t i = 0; i < columns.size(); ++i) {
            const QString text = qStringFromBytes(cells[i]);
            if (text.isEmpty())
                continue;
            columns[i].point.take(text.toUtf8(), '.');
            columns[i].comma.take(text.toUtf8(), ',');
        }
    });
    const auto some = [&](ColumnForm Fractions::*form) {
        return std::any_of(columns.begin(), columns.end(), [&](const Fractions& column) {
            return (column.*form).numbers && (column.*form).fractions;
        });
    };
    const bool point = some(&Fractions::point);
    const bool comma = some(&Fractions::comma);
    if (point && comma)
        return QStringLiteral("decimal='auto' can't decide, since there are columns with points "
                              "and columns with commas: set decimal");
    const bool thousands = std::all_of(columns.begin(), columns.end(), [](const Fractions& column) {
        return !column.comma.numbers || !column.comma.fractions || column.comma.thousands;
    });
    if (comma && thousands)
        return QStringLiteral("decimal='auto' can't decide, since every comma stands in front of "
                              "three digits and may part thousands: set decimal");
    *decimal = comma ? ',' : '.';
    return {};
}

std::vector<qint32> proposeTypes(const CsvSample& sample, const CsvSettings& settings, bool header,
                                 int columns) {
    SampleRows rows(sample, settings);
    std::vector<ColumnForm> forms(static_cast<size_t>(rows.columns()));
    rows.forEach(header, [&](const uchar* const* cells) {
        for (size_t i = 0; i < forms.size(); ++i) {
            const QString text = qStringFromBytes(cells[i]);
            if (!text.isNull())
                forms[i].take(text.toUtf8(), settings.decimal);
        }
    });
    std::vector<qint32> types(static_cast<size_t>(columns), MetaTypeText);
    for (size_t i = 0; i < std::min(forms.size(), types.size()); ++i)
        types[i] = forms[i].metaType();
    return types;
}

} // namespace velmorra
