/// Files that aren't comma-separated UTF-8: delimiters, quotes, comments, decimal commas and
/// encodings, through the reader of whole files.
#include "csv_text.h"
#include "folder_test.h"

#include "engine/csv/csv_reader.h"
#include "engine/csv/dialect.h"

#include <gtest/gtest.h>

using namespace velmorra;

namespace {

class CsvDialect : public test::FolderTest {
protected:
    /// The names, and the rows under them, or the problem without the file's name.
    std::string read(const std::string& bytes) {
        put(bytes);
        CsvReader reader;
        const bool opened = reader.open(path("in.csv"), settings_, {});
        notices_ = reader.notices().join(u'\n').toStdString();
        if (!opened)
            return withoutName(reader.problem());
        std::string text;
        for (const QString& name : reader.shape().names)
            text += (text.empty() ? "" : "|") + name.toStdString();
        text += '\n';
        RowBatch batch;
        do {
            reader.fill(batch);
            for (int i = 0; i < batch.rows; ++i) {
                for (int c = 0; c < batch.columns; ++c)
                    text += (c > 0 ? "|" : "") +
                            shownCellText(batch.row(i)[c], reader.shape().types[c].type);
                text += '\n';
            }
        } while (batch.end == BatchEnd::More);
        return batch.problem.isNull() ? text : withoutName(batch.problem);
    }

    std::string withoutName(QString problem) const {
        return problem.replace(u'\'' + path("in.csv") + u'\'', QLatin1String("file")).toStdString();
    }

    std::string readAs(TextEncoding encoding, const std::string& bytes) {
        settings_.format.encoding = encoding;
        return read(bytes);
    }

    CsvTableSettings settings_;
    std::string notices_;
};

/// UTF-16 of a text, without a mark.
std::string units(const char16_t* text, bool lowFirst) {
    std::string bytes;
    for (; *text != 0; ++text) {
        const char low = char(*text & 0xFF);
        const char high = char(*text >> 8);
        bytes += lowFirst ? low : high;
        bytes += lowFirst ? high : low;
    }
    return bytes;
}

} // namespace

TEST_F(CsvDialect, TakesOtherDelimitersAndQuotes) {
    settings_.format.delimiter = ';';
    EXPECT_EQ(read("a;b\n1,5;\"x;y\"\n"), "a|b\n1,5|x;y\n");
    settings_.format.delimiter = '\t';
    settings_.format.quote = '\'';
    EXPECT_EQ(read("a\tb\n\"1\"\t'it''s\t'\n"), "a|b\n\"1\"|it's\t\n");
    settings_.format.quote = CsvSettings::noQuote;
    EXPECT_EQ(read("a\tb\r\n\"1\t'\r\n\t\"\"\r\n"), "a|b\n\"1|'\n~|\"\"\n");
    EXPECT_EQ(read("a\tb\n\n1\t2\n\n"), "a|b\n1|2\n");
    EXPECT_EQ(read("a\tb\n1\t2\t3\n"), "file line 2: the row has 3 fields where 2 are expected");
}

TEST_F(CsvDialect, ReadsDecimalCommas) {
    settings_.format.delimiter = ';';
    settings_.format.decimal = ',';
    settings_.types = QStringLiteral("x:F");
    EXPECT_EQ(read("k;x\n1;-1,50\n2;,5\n3;1e3\n4;\n5;inf\n"),
              "k|x\n1|-1.5\n2|0.5\n3|1000\n4|~\n5|inf\n");
    EXPECT_EQ(read("k;x\n1;1.5\n"), "file line 2, column 2 'x': '1.5' is not a Float (a decimal "
                                    "number with a comma)");
    settings_.format.delimiter = ',';
    EXPECT_EQ(read("k,x\n1,\"1,5\"\n"), "k|x\n1|1.5\n");
}

TEST_F(CsvDialect, PassesOverCommentLines) {
    settings_.format.comment = "#";
    EXPECT_EQ(read("# a \"file\", of\r\n#\n\na,b\n#1,2\n\"#3\",4\n5,#6\n# end"),
              "a|b\n#3|4\n5|#6\n");
    EXPECT_EQ(read("a\n#\n\n1\n#x\n"), "a\n~\n1\n");
    EXPECT_EQ(read("#only"), "\n");
    settings_.format.comment = "//";
    EXPECT_EQ(read("a,b\n/1,2\n//1,2,3\n1,2,3\n"),
              "file line 4: the row has 3 fields where 2 are expected");
    // A comment may be longer than a field may be, and than what is read at a time.
    settings_.format.fieldLimit = 10;
    const std::string line = "//" + std::string(600 << 10, 'x');
    EXPECT_EQ(read(line + "\na,b\n" + line + ",\"\n1,2\n" + line), "a|b\n1|2\n");
}

TEST_F(CsvDialect, ReadsWindows1252) {
    EXPECT_EQ(readAs(TextEncoding::Windows1252, "n\xE9,\x80\nfa\xE7"
                                                "ade,\x93x\x94\n"),
              "n\u00E9|\u20AC\nfa\u00E7"
              "ade|\u201Cx\u201D\n");
    EXPECT_EQ(readAs(TextEncoding::Windows1252, "a,b\n1,x\n2,\xE9\x81\n"),
              "file line 3, column 2 'b': the byte 0x81 is not valid Windows-1252, behind "
              "'\u00E9'");
    EXPECT_EQ(readAs(TextEncoding::Windows1252, "\xEF\xBB\xBFn\n1\n"),
              "file: the file begins with the byte order mark of utf-8, not of windows-1252");
}

TEST_F(CsvDialect, ReadsUtf16) {
    const char16_t* const text = u"n\u00E9,b\r\n\u20AC,\U0001F600\r\n";
    const std::string rows = "n\u00E9|b\n\u20AC|\U0001F600\n";
    const std::string little = units(text, true);
    const std::string big = units(text, false);
    EXPECT_EQ(readAs(TextEncoding::Utf16, "\xFF\xFE" + little), rows);
    EXPECT_EQ(readAs(TextEncoding::Utf16, "\xFE\xFF" + big), rows);
    EXPECT_EQ(readAs(TextEncoding::Utf16, "\xFF\xFE"), "\n");
    EXPECT_EQ(readAs(TextEncoding::Utf16, ""), "\n");
    EXPECT_EQ(readAs(TextEncoding::Utf16, little),
              "file: the file has no byte order mark; ask for the encoding utf-16le or utf-16be");
    EXPECT_EQ(readAs(TextEncoding::Utf16Le, little), rows);
    EXPECT_EQ(readAs(TextEncoding::Utf16Le, "\xFF\xFE" + little), rows);
    EXPECT_EQ(readAs(TextEncoding::Utf16Be, big), rows);
    EXPECT_EQ(readAs(TextEncoding::Utf16Be, "\xFF\xFE" + little),
              "file: the file begins with the byte order mark of utf-16le, not of utf-16be");
    EXPECT_EQ(readAs(TextEncoding::Utf8, "\xFF\xFE" + little),
              "file begins with the byte order mark of utf-16; ask for it with "
              "encoding='utf-16'");
    const std::string half = units(u"a\n", true) + std::string("\0\xD8", 2) + units(u"x\n", true);
    EXPECT_EQ(readAs(TextEncoding::Utf16Le, half),
              "file line 2, column 1 'a': the code unit 0xD800 is half a character of UTF-16, "
              "behind ''");
    EXPECT_EQ(readAs(TextEncoding::Utf16Le, units(u"a\nx", true) + "y"),
              "file line 2, column 1 'a': the last byte, 0x79, is half a code unit of UTF-16, "
              "behind 'x'");
    EXPECT_NE(readAs(TextEncoding::Utf16Le, little + std::string(2, '\0')).find("a NUL byte"),
              std::string::npos);
    // Longer than what is read at a time, and characters across the borders.
    std::u16string lines = u"t\n";
    std::string expected = "t\n";
    for (int i = 0; i < 30000; ++i) {
        lines += u"\u00E4\U0001F600x\n";
        expected += "\u00E4\U0001F600x\n";
    }
    EXPECT_EQ(readAs(TextEncoding::Utf16Le, units(lines.c_str(), true)), expected);
}

TEST_F(CsvDialect, ProposesTypesThatLoseNothing) {
    settings_.proposeTypes = true;
    const auto typesOf = [&](const std::string& values) {
        read("c,d\n" + values);
        return notices_;
    };
    EXPECT_EQ(typesOf("1,0.5\n,-3\n4294967293,1.25e-3\n"), "types: c:K,d:F");
    EXPECT_EQ(typesOf("-1,1e5\n2,\n"), "types: c:F");
    EXPECT_EQ(typesOf("-1,1e5\n2,0.5\n"), "types: c:F,d:F");
    EXPECT_EQ(typesOf("7,123456789012345\n,1.5\n"), "types: c:K,d:F");
    const std::string none = "types: every column is text";
    for (const char* value : {"007", "-01", "+1", "4294967294", "-5000000000", "2024-05-06", "1.",
                              ".5", "nan", "inf", "0x1", " 1", "1e5", "0.1234567890123456", "\"\""})
        EXPECT_EQ(typesOf(std::string("1,\n") + value + ",\n"), none) << value;
    EXPECT_EQ(typesOf(""), none);
    EXPECT_EQ(read("c,d\n1,x\n"), "c|d\n1|x\n");
    // Names that a list must quote, and columns that share one.
    read("\"a,b\",x,x\n1,y,2\n");
    EXPECT_EQ(notices_, "types: \"a,b:K\",x:U,x:K");
    settings_.header = false;
    read("1,x\n");
    EXPECT_EQ(notices_, "types: col1:K");
}

TEST_F(CsvDialect, ProposesFromABoundedSampleAndRefusesLaterFields) {
    settings_.proposeTypes = true;
    std::string file = "n,t\n";
    for (int i = 0; i < 2000; ++i)
        file += std::to_string(i) + ",a\n";
    EXPECT_EQ(read(file + "x,b\n"),
              "file line 2002, column 1 'n': 'x' is not a Key (a whole number from 0 to "
              "4294967293); types='auto' proposed the type: declare it, as n:U for text");
    EXPECT_EQ(notices_, "types: n:K");
    // A number cut by the sample's end, and a text of many lines there, decide nothing.
    std::string wide = "n,t\n";
    while (wide.size() < (1 << 20) + 100)
        wide += "12345678," + std::string(3000, 'w') + "\n";
    EXPECT_EQ(read(wide + "1,\"" + std::string(1 << 20, '\n') + "\"\n").size() > wide.size(), true);
    EXPECT_EQ(notices_, "types: n:K");
}

TEST_F(CsvDialect, ProposesADelimiterWhereOneIsClear) {
    settings_.proposeDelimiter = true;
    EXPECT_EQ(read("a;b\n1,5;2\n3;4,5\n"), "a|b\n1,5|2\n3|4,5\n");
    EXPECT_EQ(notices_, "proposed: delimiter='semicolon'");
    EXPECT_EQ(read("a\tb\n\"x;\n\"\ty\n"), "a|b\nx;\n|y\n");
    EXPECT_EQ(notices_, "proposed: delimiter='tab'");
    EXPECT_EQ(read("a\n1\n"), "a\n1\n");
    EXPECT_EQ(read("a;b,c\n1;2,3\n"),
              "file: delimiter='auto' can't decide, since several fit: comma (2 columns), "
              "semicolon (2 columns); set delimiter");
    EXPECT_EQ(read("a,b\n1\n2,3,4\n"),
              "file: delimiter='auto' finds none that gives all rows the same columns: set "
              "delimiter");
    settings_.proposeDecimal = settings_.proposeTypes = settings_.proposeEncoding = true;
    EXPECT_EQ(read("n\xE9;x\n1;2,5\n2;3\n"), "n\u00E9|x\n1|2.5\n2|3\n");
    EXPECT_EQ(notices_, "proposed: encoding='windows-1252' delimiter='semicolon' "
                        "decimal='comma'\ntypes: n\u00E9:K,x:F");
    EXPECT_EQ(read("a;x;y\n1;2,5;2.5\n"),
              "file: decimal='auto' can't decide, since there are columns with points and columns "
              "with commas: set decimal");
    EXPECT_EQ(read("a;x\n1;1,234\n"),
              "file: decimal='auto' can't decide, since every comma stands in front of three "
              "digits and may part thousands: set decimal");
}

TEST_F(CsvDialect, ProposesAnEncoding) {
    settings_.proposeEncoding = true;
    const char16_t* const text = u"name,b\n\u20AC,x\n";
    const std::string rows = "name|b\n\u20AC|x\n";
    for (const bool lowFirst : {true, false}) {
        EXPECT_EQ(read(units(text, lowFirst)), rows);
        EXPECT_EQ(notices_,
                  lowFirst ? "proposed: encoding='utf-16le'" : "proposed: encoding='utf-16be'");
        EXPECT_EQ(read(units(u"\uFEFF", lowFirst) + units(text, lowFirst)), rows);
        EXPECT_EQ(notices_, "proposed: encoding='utf-16'");
    }
    EXPECT_EQ(read("name,b\n\u20AC,x\n"), rows);
    EXPECT_EQ(notices_, "proposed: encoding='utf-8'");
    EXPECT_NE(read("a\n\x81\n").find("finds no encoding"), std::string::npos);
    EXPECT_EQ(read(""), "\n");
}

TEST(TextEncoding, GivesBackEveryByteAsItStood) {
    for (const TextEncoding encoding :
         {TextEncoding::Windows1252, TextEncoding::Utf16Le, TextEncoding::Utf16Be}) {
        std::string bytes;
        for (unsigned i = 0; i < 0x10000; i += 0x35)
            bytes += {char(i & 0xFF), char(i >> 8)};
        bytes += '\x41';
        for (const qint64 piece : {1, 7, 100000}) {
            TextDecoder decoder(encoding, bytesSource(bytes, piece));
            std::string decoded;
            uchar part[64];
            for (qint64 got = 1; got > 0;) {
                got = decoder.read(part, sizeof part);
                ASSERT_GE(got, 0);
                decoded.append(reinterpret_cast<char*>(part), size_t(got));
            }
            QByteArray back;
            EXPECT_EQ(encodeText(encoding, decoded.data(), qsizetype(decoded.size()), &back), -1);
            EXPECT_TRUE(back.toStdString() == bytes) << piece;
        }
    }
    QByteArray out;
    EXPECT_EQ(encodeText(TextEncoding::Windows1252, "a\u20AC\u0416", 6, &out), 4);
    EXPECT_EQ(out, "a\x80");
}

TEST(Dialect, TakesCharactersAndWords) {
    char character = 0;
    for (const auto& [text, expected] : {std::pair(";", ';'), std::pair("TAB", '\t'),
                                         std::pair("\t", '\t'), std::pair("pipe", '|')}) {
        EXPECT_TRUE(parseDelimiter(QLatin1String(text), &character).isNull()) << text;
        EXPECT_EQ(character, expected);
    }
    for (const char* text : {"", ";;", "x", "1", "-", ".", "\"", "\n", "\xC3\xA7", "komma"})
        EXPECT_FALSE(parseDelimiter(QString::fromUtf8(text), &character).isNull()) << text;
    EXPECT_TRUE(parseQuote(QStringLiteral("none"), &character).isNull());
    EXPECT_EQ(character, CsvSettings::noQuote);
    EXPECT_FALSE(parseQuote(QStringLiteral(" "), &character).isNull());
    EXPECT_FALSE(parseDecimal(QStringLiteral(";"), &character).isNull());
    CsvSettings settings;
    settings.quote = ',';
    EXPECT_FALSE(checkDialect(settings).isNull());
    settings.quote = '"';
    settings.comment = "#,";
    EXPECT_FALSE(checkDialect(settings).isNull());
}
