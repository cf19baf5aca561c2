// The one UTF-8 codec: strict and lenient decoding agree on well-formed text
// and part ways on ill-formed text as their callers need.
#include "zerko/foundation/utf8.hpp"

#include <gtest/gtest.h>

#include <string>

using namespace zerko::foundation;

TEST(Utf8, RoundTripsEveryLengthOfSequence) {
    const std::u32string text = U"a\u00e9\u0416\u4e2d\U0001F600\U0010FFFF";
    const std::string bytes = encode_utf8(text);
    EXPECT_EQ(bytes, "a\xc3\xa9\xd0\x96\xe4\xb8\xad\xf0\x9f\x98\x80\xf4\x8f\xbf\xbf");
    EXPECT_EQ(decode_utf8(bytes), text);
    std::u32string strict;
    std::size_t bad = 99;
    EXPECT_TRUE(decode_utf8_strict(bytes, strict, bad));
    EXPECT_EQ(strict, text);
    EXPECT_EQ(bad, 99u);
    EXPECT_EQ(utf8_length(bytes), text.size());
    EXPECT_EQ(utf8_length(bytes, 5), 3u);  // "a", "é" and the first byte of "Ж"
}

TEST(Utf8, IllFormedSequencesAreRefusedOrReplacedOneByteAtATime) {
    struct Case {
        std::string bytes;
        std::size_t bad;            // offset the strict decoder reports
        std::u32string lenient;     // what the lenient decoder gives
    };
    const Case cases[] = {
        {"ab\xff", 2, U"ab\ufffd"},                       // no lead byte
        {"\xc0\xaf", 0, U"\ufffd\ufffd"},                  // overlong "/"
        {"x\xed\xa0\x80", 1, U"x\ufffd\ufffd\ufffd"},      // a surrogate
        {"\xf4\x90\x80\x80", 0, U"\ufffd\ufffd\ufffd\ufffd"},  // above U+10FFFF
        {"\xd0", 0, U"\ufffd"},                            // truncated at the end
        {"\xe4\xb8x", 0, U"\ufffd\ufffdx"},                // truncated before "x"
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.bytes);
        std::u32string out;
        std::size_t bad = 99;
        EXPECT_FALSE(decode_utf8_strict(c.bytes, out, bad));
        EXPECT_EQ(bad, c.bad);
        EXPECT_EQ(decode_utf8(c.bytes), c.lenient);
    }
}

TEST(Utf8, CharacterStartBacksOffToTheLeadByte) {
    const std::string text = "Ящик😀";  // 2 + 2 + 2 + 2 + 4 bytes
    EXPECT_EQ(utf8_char_start(text, 0), 0u);
    EXPECT_EQ(utf8_char_start(text, 1), 0u);
    EXPECT_EQ(utf8_char_start(text, 7), 6u);
    EXPECT_EQ(utf8_char_start(text, 11), 8u);
    EXPECT_EQ(utf8_char_start(text, 12), 12u);  // past the end: unchanged
}
