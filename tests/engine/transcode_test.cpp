/// Transcoding in blocks gives what the portable form gives, at every place of a block, also of
/// text that isn't valid.
#include "engine/csv/transcode_blocks.h"
#include "engine/csv/transcode_wide.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

using namespace velmorra;

namespace {

/// Characters of each length and what stands next to the limits of each, mixed with what is broken:
/// half, overlong, cut and stray sequences.
std::string randomBytes(std::mt19937& random, bool valid) {
    const std::vector<std::string> characters = {"a",
                                                 "z",
                                                 "\x7F",
                                                 "\xC2\x80",
                                                 "\xC3\xA9",
                                                 "\xDF\xBF",
                                                 "\xE0\xA0\x80",
                                                 "\xE2\x82\xAC",
                                                 "\xED\x9F\xBF",
                                                 "\xEE\x80\x80",
                                                 "\xEF\xBF\xBF",
                                                 "\xF0\x90\x80\x80",
                                                 "\xF4\x8F\xBF\xBF"};
    const std::vector<std::string> broken = {"\x80",
                                             "\xBF",
                                             "\xC0\xAF",
                                             "\xC1\xBF",
                                             "\xC3",
                                             "\xE0\x9F\xBF",
                                             "\xE2\x82",
                                             "\xE2",
                                             "\xED\xA0\x80",
                                             "\xF0\x8F\xBF\xBF",
                                             "\xF4\x90\x80\x80",
                                             "\xF8\x88\x80\x80\x80",
                                             "\xFF"};
    // Mostly of a few kinds, so that all paths of a block are taken.
    const size_t kinds = 1 + random() % characters.size();
    const size_t first = random() % characters.size();
    std::string text;
    for (size_t n = random() % 60; n > 0; --n)
        text += characters[(first + random() % kinds) % characters.size()];
    if (!valid)
        text.insert(random() % (text.size() + 1), broken[random() % broken.size()]);
    return text;
}

constexpr size_t guard = 8;

/// The units, at an odd address, and where the first bad byte is.
std::pair<std::string, qsizetype> decoded(decltype(decodeUtf8) decode, const std::string& text) {
    // What stands behind a text would go on its last character.
    const std::string padded = text + std::string(transcodeSlack, '\x80');
    std::string units(1 + 2 * text.size() + transcodeSlack + guard, '#');
    const Decoded result =
        decode(reinterpret_cast<const uchar*>(padded.data()), qsizetype(text.size()),
               reinterpret_cast<uchar*>(units.data()) + 1);
    EXPECT_EQ(units.substr(units.size() - guard), std::string(guard, '#'));
    return {units.substr(1, size_t(2 * result.units)), result.badAt};
}

/// The bytes, and the number of half characters.
std::pair<std::string, qint64> encoded(decltype(encodeUtf8) encode, const std::string& units) {
    // Of its own size, so that reading beyond the end shows where memory is checked.
    const auto odd = std::make_unique<char[]>(1 + units.size());
    std::memcpy(odd.get() + 1, units.data(), units.size());
    const size_t count = units.size() / 2;
    std::string bytes(bytesPerUnit * count + encodeSlack + guard, '#');
    const Encoded result =
        encode(reinterpret_cast<const uchar*>(odd.get()) + 1, qsizetype(count), bytes.data());
    EXPECT_EQ(bytes.substr(bytes.size() - guard), std::string(guard, '#'));
    return {bytes.substr(0, size_t(result.end - bytes.data())), result.broken};
}

struct Form {
    decltype(decodeUtf8)* decode;
    decltype(encodeUtf8)* encode;
};

/// Those in blocks that this processor can run.
std::vector<Form> formsInBlocks() {
    std::vector<Form> forms;
    if (hasTranscodeBlocks())
        forms.push_back({blocks::decodeUtf8, blocks::encodeUtf8});
    if (hasWideTranscode())
        forms.push_back({wide::decodeUtf8, wide::encodeUtf8});
    return forms;
}

} // namespace

TEST(Transcode, BlocksGiveWhatThePortableFormGives) {
    std::mt19937 random(3);
    for (int round = 0; round < 20000; ++round) {
        const std::string text = randomBytes(random, round % 2 == 0);
        const auto units = decoded(portable::decodeUtf8, text);
        if (round % 2 == 0) {
            EXPECT_EQ(units.second, -1);
            EXPECT_EQ(encoded(portable::encodeUtf8, units.first), std::pair(text, qint64(0)));
        }
        std::string broken = units.first;
        for (size_t i = 0; round % 4 == 1 && i + 1 < broken.size(); i += 2 * (1 + random() % 9))
            broken[i + 1] = static_cast<char>(0xD8 + random() % 8);
        const auto bytes = encoded(portable::encodeUtf8, broken);
        for (const Form& form : formsInBlocks()) {
            ASSERT_EQ(decoded(form.decode, text), units) << testing::PrintToString(text);
            ASSERT_EQ(encoded(form.encode, broken), bytes) << testing::PrintToString(text);
        }
    }
}

TEST(Transcode, EverySequenceOfBytesIsJudgedAsThePortableFormDoes) {
    for (unsigned pair = 0; pair < 0x10000; ++pair) {
        for (const char* tail : {"\x80", "\xBFz", ""}) {
            std::string text(pair % 35, 'a');
            text += {static_cast<char>(pair >> 8), static_cast<char>(pair & 0xFF)};
            text += tail;
            const auto units = decoded(portable::decodeUtf8, text);
            for (const Form& form : formsInBlocks())
                ASSERT_EQ(decoded(form.decode, text), units) << pair << ' ' << tail;
        }
    }
}
