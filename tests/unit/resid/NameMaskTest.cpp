#include <gtest/gtest.h>
#include <random>

#include <QRegularExpression>

#include "QvStd/Strings.h"
#include "resid/NameMask.h"

namespace
{
std::vector<std::string> Words(const std::string& text)
{
    std::vector<std::string> words;
    append_parse_strings(words, text, ' ', false);
    return words;
}

/// One to six of `pieces`, which may make characters together or break them.
std::string RandomText(std::mt19937& random, const std::vector<std::string>& pieces)
{
    std::string text;
    for (auto left = 1 + random() % 6; left > 0; --left)
        text += pieces[random() % pieces.size()];
    return text;
}

// The quick way for plain masks must not differ from Qt's in any name: letter case beyond ASCII,
// characters of two code units, broken UTF-8, characters of regular expressions.
TEST(NameMask, AnswersAsQtDoes)
{
    const std::vector<std::string> letters =
        Words(u8"a A k S . - $ ( \\ ] {2} \n \u00E4 \u00C4 \u017F \u212A \uFEFF \U0001F600 \uFFFD "
              "\xC3 \xA4 \xE2\x84 \xFF \xED\xA0\x80");
    const std::vector<std::string> wildcards = Words("* * ? [ak] [!a] [");
    std::vector<std::string> ofMasks = Words("a k s . * * ? \\ ] ( ^ +");
    std::mt19937 random(20240229);
    int matches = 0;
    for (int i = 0; i < 3000; ++i) {
        if (i == 2000) {
            ofMasks = letters;
            ofMasks.insert(ofMasks.end(), wildcards.begin(), wildcards.end());
        }
        const std::string mask = RandomText(random, ofMasks);
        const QRegularExpression expected(
            QRegularExpression::wildcardToRegularExpression(QString::fromStdString(mask)),
            QRegularExpression::CaseInsensitiveOption);
        const TNameMask nameMask(mask);
        for (int k = 0; k < 30; ++k) {
            const std::string name = RandomText(random, letters);
            const bool isMatch =
                expected.isValid() && expected.match(QString::fromStdString(name)).hasMatch();
            ASSERT_EQ(nameMask.Matches(name), isMatch)
                << testing::PrintToString(name) << " by " << testing::PrintToString(mask);
            matches += isMatch ? 1 : 0;
        }
    }
    EXPECT_GT(matches, 2000);
    EXPECT_FALSE(TNameMask("").Matches("a"));
}
} // namespace
