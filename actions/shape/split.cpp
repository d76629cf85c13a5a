#include "actions/shape/split.h"

#include "plugin/bounds.h"

#include <algorithm>
#include <bit>
#include <cstring>

#if defined(__x86_64__) && defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

constexpr char16_t lineBreak = u'\r';

/// Bytes of a separator, which make room for the length field of the piece behind it.
constexpr int roomInFront = 2;

/// The place behind the line break at `place`; a carriage return with its line feed is one.
int behindLineBreak(const uchar* chars, int units, int place) {
    const bool isPair = cell::unitAt(chars, place) == u'\r' && place + 1 < units &&
                        cell::unitAt(chars, place + 1) == u'\n';
    return place + (isPair ? 2 : 1);
}

template <bool atLineBreaks>
bool isSeparator(char16_t unit, char16_t separator) {
    return atLineBreaks ? unit == u'\r' || unit == u'\n' : unit == separator;
}

/// Code units that separatorsIn looks at; it reads them all.
constexpr int blockUnits = 64;

/// A bit for each of the 64 code units that separates.
template <bool atLineBreaks>
quint64 separatorsIn(const uchar* chars, char16_t separator) {
    quint64 mask = 0;
#if defined(__x86_64__) && defined(__SSE2__)
    const auto find = [chars](int unit, char16_t wanted) {
        __m128i eight;
        std::memcpy(&eight, chars + 2 * unit, sizeof eight);
        return _mm_cmpeq_epi16(eight, _mm_set1_epi16(static_cast<short>(wanted)));
    };
    const auto findAll = [&find, separator](int unit) {
        if constexpr (atLineBreaks)
            return _mm_or_si128(find(unit, u'\r'), find(unit, u'\n'));
        else
            return find(unit, separator);
    };
    for (int unit = 0; unit < blockUnits; unit += 16) {
        const __m128i sixteen = _mm_packs_epi16(findAll(unit), findAll(unit + 8));
        mask |= quint64(static_cast<quint16>(_mm_movemask_epi8(sixteen))) << unit;
    }
#else
    for (int unit = 0; unit < blockUnits; ++unit)
        mask |= quint64(isSeparator<atLineBreaks>(cell::unitAt(chars, unit), separator)) << unit;
#endif
    return mask;
}

/// Whether a text is written like a whole number, also one of too many digits.
bool isWholeNumber(const QString& text) {
    const QString digits = text.startsWith(u'-') || text.startsWith(u'+') ? text.mid(1) : text;
    return !digits.isEmpty() && std::all_of(digits.begin(), digits.end(),
                                            [](QChar c) { return c >= u'0' && c <= u'9'; });
}

} // namespace

const StoredElement& Split::declaration() {
    static const StoredElement element =
        StoredElement(2.08)
            .text<&Split::sep>("sep", "", Written::WhenNotDefault,
                               "the first character separates the pieces; LB for line breaks of "
                               "any kind; empty for a blank")
            .text<&Split::suffix>("suffix", "_S", Written::WhenNotDefault,
                                  "stands between the name of the column and the number of the "
                                  "piece")
            .boolean<&Split::useSuffix>("useSuffix", true, Written::WhenNotDefault,
                                        "1: new columns are named by suffix and number; 0: by the "
                                        "pieces of the column's name")
            .boolean<&Split::fixed>("fixed", false, Written::WhenNotDefault,
                                    "1: 'number' says how many columns are added; 0, or with "
                                    "several columns to split: the first row does")
            .boolean<&Split::trim>("trim", true, Written::WhenNotDefault,
                                   "1: blanks and tabs are stripped from the ends of the pieces, "
                                   "unless a blank separates them")
            .text<&Split::number>("number", "10", Written::WhenNotDefault,
                                  "how many columns are added, where 'fixed' is 1; may hold "
                                  "parameters. 0, or no number: as many as the first row has "
                                  "pieces")
            .list<&Split::columns>("columns", "columns to split", {"\n  ", "\n", "\n"});
    return element;
}

Split::Split(const XMLNode& element, GlobalParameters* parameters)
    : RowByRowAction(element, parameters) {
    readStored(declaration());
}

bool Split::beforeRun() {
    secondBlank_ = sep == QLatin1String("\t") ? u' ' : u'\t';
    if (!sep.isEmpty() && sep.front().isSurrogate())
        return fail(QStringLiteral("ERROR: the character that 'sep' begins with takes two code "
                                   "units; a separator has one.\n"));
    if (wantedCount())
        return false;
    constexpr qsizetype longest = 40;
    return fail(outOfRange("number", expandString(number).left(longest), 0, mostColumns));
}

/// The number of pieces that is set, 0 where the first row decides; nothing when it is out of
/// range.
std::optional<qint64> Split::wantedCount() const {
    if (!fixed || columns.size() != 1)
        return 0;
    const QString text = expandString(number).trimmed();
    if (!isWholeNumber(text))
        return 0;
    bool ok = false;
    const qint64 count = text.toLongLong(&ok);
    return ok && count >= 0 && count <= mostColumns ? std::optional(count) : std::nullopt;
}

qint64 Split::countPieces(const OneRow& row, int column) const {
    const ushort* text = nullptr;
    const int units = row.col(column, &text);
    const uchar* const chars = reinterpret_cast<const uchar*>(text);
    qint64 count = 1;
    const bool atLineBreaks = separator_ == lineBreak;
    for (int place = 0; place < units;) {
        const char16_t unit = cell::unitAt(chars, place);
        const bool separates = atLineBreaks ? isSeparator<true>(unit, separator_)
                                            : isSeparator<false>(unit, separator_);
        count += separates ? 1 : 0;
        place = separates && atLineBreaks ? behindLineBreak(chars, units, place) : place + 1;
    }
    return count;
}

bool Split::resolve(const OneRow& row) {
    separator_ = sep.isEmpty()                ? u' '
                 : sep == QLatin1String("LB") ? lineBreak
                                              : sep.front().unicode();
    const qint64 wanted = wantedCount().value_or(0);
    sources_.clear();
    int end = row.sz();
    for (const QString& name : columns) {
        const int column = row.getIndexOfColumn(name);
        if (column < 0)
            return !fail(QStringLiteral("ERROR: column '%1' not found.\n").arg(name));
        const qint64 count = wanted > 0 ? wanted : countPieces(row, column);
        if (end + count > mostColumns)
            return !fail(tooManyColumns(end + count));
        end += static_cast<int>(count);
        sources_.push_back({column, end});
    }
    OneRow& out = *getOutputRowForOutputPin(0);
    out.copyFrom(row);
    out.setNumberOfColumns(end);
    int first = row.sz();
    for (const Source& source : sources_) {
        namePieces(out, source.column, first, source.end);
        first = source.end;
    }
    return true;
}

/// Names the columns of the pieces of an input column, from `first` to in front of `end`.
void Split::namePieces(OneRow& out, int column, int first, int end) const {
    const QString base = out.colName(column);
    const QStringList parts = useSuffix ? QStringList() : base.split(QChar(separator_));
    for (int piece = 0; first + piece < end; ++piece)
        out.setColName(first + piece, piece < parts.size()
                                          ? parts[piece].trimmed()
                                          : base + suffix + QString::number(piece));
}

void Split::takeFrom(const Split& master) {
    sources_ = master.sources_;
    separator_ = master.separator_;
}

void Split::release() {
    sources_ = {};
    pieces_.deepReset(0);
}

void Split::passOn(const OneRow& row) {
    OneRow& out = *getOutputRowForOutputPin(0);
    out.copyFrom(row);
    pieces_.reset();
    const uchar** first = out.cells + row.sz();
    for (const Source& source : sources_) {
        const uchar** const end = out.cells + source.end;
        const ushort* text = nullptr;
        const int units = row.col(source.column, &text);
        const uchar* const chars = reinterpret_cast<const uchar*>(text);
        if (text == nullptr)
            std::fill(first, end, cell::nullCell(MetaTypeText));
        else if (separator_ == lineBreak)
            cut<true>(chars, units, first, end);
        else
            cut<false>(chars, units, first, end);
        first = end;
    }
    setRowReadyForOutput(0);
}

/// Points the cells from `first` to in front of `end` at the pieces of a text; what is left of
/// these becomes null, and what is left of the text is dropped. The pieces stay where they are in
/// one copy of the text, in which their length fields take the place of separators.
template <bool atLineBreaks>
void Split::cut(const uchar* chars, int units, const uchar** first, const uchar** end) {
    uchar* const text =
        pieces_.alloc(roomInFront + 2 * (qsizetype(units) + blockUnits)) + roomInFront;
    std::memcpy(text, chars, 2 * static_cast<size_t>(units));
    int place = 0;
    for (int block = 0; block < units; block += blockUnits) {
        quint64 mask = separatorsIn<atLineBreaks>(text + 2 * qsizetype(block), separator_);
        if (units - block < blockUnits)
            mask &= (quint64(1) << (units - block)) - 1;
        for (; mask != 0; mask &= mask - 1) {
            const int stop = block + std::countr_zero(mask);
            if (atLineBreaks && stop < place)
                continue; // the line feed of a pair
            *first = pieceAt(text + 2 * qsizetype(place), stop - place);
            if (++first == end)
                return;
            place = atLineBreaks ? behindLineBreak(text, units, stop) : stop + 1;
        }
    }
    *first = pieceAt(text + 2 * qsizetype(place), units - place);
    std::fill(first + 1, end, cell::nullCell(MetaTypeText));
}

/// The cell of a piece, with its length field in front of where the text stands. One that needs
/// more room than a separator had makes the piece move.
const uchar* Split::pieceAt(uchar* chars, int units) {
    if (trim && separator_ != u' ') {
        const auto isBlank = [&](int place) {
            const char16_t unit = cell::unitAt(chars, place);
            return unit == u' ' || unit == secondBlank_;
        };
        while (units > 0 && isBlank(units - 1))
            --units;
        for (; units > 0 && isBlank(0); --units)
            chars += 2;
    }
    const int field = cell::lengthFieldBytes(units + 1);
    if (field <= roomInFront) {
        cell::writeLength(chars - field, units + 1);
        return chars - field;
    }
    uchar* const moved = pieces_.alloc(field + 2 * qsizetype(units));
    cell::writeText(moved, chars, units);
    return moved;
}
