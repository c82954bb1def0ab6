#include <gtest/gtest.h>

#include "tools/process/ToolError.h"
#include "tools/text/GainText.h"
#include "tools/text/MarkupText.h"
#include "tools/text/TimeText.h"

namespace android {
namespace {

TEST(TimeText, TakesSecondsMillisecondsAndAClocksTime) {
    EXPECT_EQ(2'500'000'000, parseTimeNs("2.5", ""));
    EXPECT_EQ(2'500'000'000, parseTimeNs("2.5 s", ""));
    EXPECT_EQ(250'000'000, parseTimeNs("250ms", ""));
    EXPECT_EQ(-400'000'000, parseSignedTimeNs("-400ms", ""));
    EXPECT_EQ(90'250'000'000, parseTimeNs("1:30.25", ""));
    EXPECT_EQ(-3'723'000'000'000, parseSignedTimeNs("-1:02:03", ""));
    for (const char* text : {"0:60", "1:2", ":30", "1:30s", "1:-30", "", "s", "2.5m", "nan", "inf",
                             "1e9", "1s 2", "0x"}) {
        EXPECT_THROW(parseSignedTimeNs(text, ""), ToolError) << text;
    }
    EXPECT_THROW(parseTimeNs("-1ms", ""), ToolError);
}

TEST(GainText, TakesFactorsAndDecibels) {
    EXPECT_DOUBLE_EQ(0.25, parseGain("0.25", ""));
    EXPECT_DOUBLE_EQ(1.0, parseGain("0 dB", ""));
    EXPECT_NEAR(0.1, parseGain("-20dB", ""), 1e-12);
    EXPECT_NEAR(10.0, parseGain("+20dB", ""), 1e-12);
    for (const char* text : {"", "dB", "15.86", "-0.1", "24.1dB", "-6", "-6 bels", "nan"}) {
        EXPECT_THROW(parseGain(text, ""), ToolError) << text;
    }
    EXPECT_DOUBLE_EQ(1.0, parseGain("0dB", "", 1.0));
    EXPECT_THROW(parseGain("1dB", "", 1.0), ToolError);
}

TEST(MarkupText, LetsNothingThroughThatIsNoTextOfAPage) {
    EXPECT_EQ("&lt;a href=&quot;x&quot;&gt; &amp; caf\xc3\xa9 \xf0\x9f\x8e\xb5",
              markupText("<a href=\"x\"> & caf\xc3\xa9 \xf0\x9f\x8e\xb5"));
    // Control characters, a byte alone, one too few, overlong, a surrogate, a non-character.
    EXPECT_EQ("a?b?", markupText("a\nb\x7f"));
    EXPECT_EQ("??", markupText("\xc2\x85"));
    EXPECT_EQ("?x", markupText("\xff"
                               "x"));
    EXPECT_EQ("?", markupText("\xc3"));
    EXPECT_EQ("??", markupText("\xc0\xaf"));
    EXPECT_EQ("???", markupText("\xed\xa0\x80"));
    EXPECT_EQ("???", markupText("\xef\xbf\xbe"));
}

}  // namespace
}  // namespace android
