#include "engine/csv/dialect.h"

#include "engine/csv/field_value.h"

#include <algorithm>
#include <iterator>

namespace velmorra {

namespace {

struct Word {
    const char* word;
    char character;
};

constexpr Word delimiterWords[] = {{"comma", ','}, {"semicolon", ';'}, {"tab", '\t'},
                                   {"pipe", '|'},  {"space", ' '},     {"colon", ':'}};
constexpr Word quoteWords[] = {{"double", '"'}, {"single", '\''}, {"none", CsvSettings::noQuote}};
constexpr Word decimalWords[] = {{"point", '.'}, {"comma", ','}};

template <class Words>
bool findWord(const Words& words, const QString& text, char* character) {
    const auto found = std::find_if(std::begin(words), std::end(words), [&](const Word& word) {
        return text.compare(QLatin1String(word.word), Qt::CaseInsensitive) == 0;
    });
    if (found == std::end(words))
        return false;
    *character = found->character;
    return true;
}

/// A single visible character of ASCII, or a tab or blank.
bool isPlainCharacter(const QString& text) {
    return text.size() == 1 &&
           (text[0] == u'\t' || (text[0].unicode() >= ' ' && text[0].unicode() < 0x7F));
}

QString wrongSetting(const char* name, const QString& text, const char* expected) {
    return QLatin1String(name) + QStringLiteral(" is ") + shownValue(text) +
           QStringLiteral("; it must be ") + QLatin1String(expected);
}

bool canStandInNumbers(QChar character) {
    return character.isLetterOrNumber() || character == u'.' || character == u'-' ||
           character == u'+';
}

} // namespace

QString parseDelimiter(const QString& text, char* delimiter) {
    if (findWord(delimiterWords, text, delimiter))
        return {};
    if (!isPlainCharacter(text) || canStandInNumbers(text[0]) || text[0] == u'"')
        return wrongSetting("delimiter", text,
                            "comma, semicolon, tab, pipe, space, colon, or one ASCII character "
                            "that is no letter, digit, point, sign or quote");
    *delimiter = text[0].toLatin1();
    return {};
}

QString parseQuote(const QString& text, char* quote) {
    if (findWord(quoteWords, text, quote))
        return {};
    if (!isPlainCharacter(text) || canStandInNumbers(text[0]) || text[0] == u' ')
        return wrongSetting("quote", text,
                            "double, single, none, or one ASCII character that is no letter, "
                            "digit, point, sign or blank");
    *quote = text[0].toLatin1();
    return {};
}

QString parseDecimal(const QString& text, char* decimal) {
    if (findWord(decimalWords, text, decimal))
        return {};
    if (text != QLatin1String(".") && text != QLatin1String(","))
        return wrongSetting("decimal", text, "point or comma");
    *decimal = text[0].toLatin1();
    return {};
}

QString parseEncodingSetting(const QString& text, TextEncoding* encoding) {
    if (parseEncoding(text, encoding))
        return {};
    return wrongSetting("encoding", text, "one of ") + encodingNames();
}

QString delimiterText(char delimiter) {
    for (const Word& word : delimiterWords) {
        if (word.character == delimiter)
            return QLatin1String(word.word);
    }
    return QString(QLatin1Char(delimiter));
}

QString checkDialect(const CsvSettings& settings) {
    if (settings.delimiter == settings.quote)
        return QStringLiteral("delimiter and quote are the same character");
    for (const char byte : settings.comment) {
        if (byte == settings.delimiter || byte == settings.quote || byte == '\r' || byte == '\n' ||
            byte == 0)
            return wrongSetting("commentPrefix", QString::fromUtf8(settings.comment),
                                "a text without delimiters, quotes and line ends");
    }
    return {};
}

} // namespace velmorra
