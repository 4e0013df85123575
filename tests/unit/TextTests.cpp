#include "Helpers/UIColor+Tarvik.h"
#include "Kit/NSString.h"
#include "Kit/Render/SoftwareRenderer.h"
#include "Kit/Render/TextLayout.h"
#include "Kit/UILabel.h"
#include "Platform/Testing/TestRuntime.h"

#include <gtest/gtest.h>

namespace tarvik {
namespace {

TEST(TextRanges, CountInUtf16UnitsAndReplaceWithoutSplittingCharacters) {
    const std::string text = "a\xC3\xA9\xF0\x9F\x98\x80z";  // a, e acute, an emoji (2 units), z
    EXPECT_EQ(utf16Length(text), 5u);
    EXPECT_EQ(utf8OffsetOfUtf16Index(text, 2), 3u);
    EXPECT_EQ(utf8OffsetOfUtf16Index(text, 3), 3u);  // inside the pair: its start
    EXPECT_EQ(utf8OffsetOfUtf16Index(text, 99), text.size());
    EXPECT_EQ(stringByReplacingCharactersInRange(text, {2, 2}, "-"), "a\xC3\xA9-z");
    EXPECT_EQ(stringByReplacingCharactersInRange("ab", {2, 0}, "c"), "abc");  // typing at the end
    EXPECT_EQ(stringByReplacingCharactersInRange("abc", {NSNotFound, 5}, "!"), "abc!");
    EXPECT_EQ(rangeOfString(text, "z"), (NSRange{4, 1}));
    EXPECT_EQ(rangeOfString(text, "q").location, NSNotFound);
}

TEST(TextAttributes, LaterRangesWinAndUnsetAttributesFallBack) {
    NSAttributedString text("Shake it", {.foregroundColor = tarvik_darkTextColor()});
    text.addAttributes({.foregroundColor = tarvik_drawBlueColor()}, {0, 5});
    text.addAttributes({.font = UIFont::boldSystemFontOfSize(20)}, {3, 100});
    EXPECT_EQ(text.attributesAtIndex(0).foregroundColor, tarvik_drawBlueColor());
    EXPECT_FALSE(text.attributesAtIndex(0).font);
    EXPECT_EQ(text.attributesAtIndex(6).foregroundColor, tarvik_darkTextColor());
    EXPECT_EQ(text.attributesAtIndex(7).font, UIFont::boldSystemFontOfSize(20));
    EXPECT_EQ(text.runs().back().range, (NSRange{3, 5}));  // clamped to the text
}

// The design's faces must come from the installed Helvetica-metric family, not a fallback:
// widths and line breaks depend on it.
TEST(Fonts, DesignNamesResolveToTheInstalledHelveticaMetricFamily) {
    for (const UIFont& font : {*UIFont::fontWithName("HelveticaNeue", 16),
                               *UIFont::fontWithName("HelveticaNeue-Bold", 16),
                               UIFont::systemFontOfSize(16), UIFont::boldSystemFontOfSize(20)}) {
        EXPECT_EQ(loadedFamilyOfFont(font), "Nimbus Sans") << font.fontName();
    }
    EXPECT_TRUE(UIFont::fontWithName("HelveticaNeue-Bold", 16)->isBold());
    EXPECT_FALSE(UIFont::fontWithName("HelveticaNeue", 16)->isBold());
    EXPECT_FALSE(UIFont::fontWithName("", 16));
    EXPECT_FALSE(UIFont::fontWithName("HelveticaNeue", 0));
    EXPECT_NEAR(UIFont::fontWithName("HelveticaNeue", 16)->lineHeight(), 19.088, 1e-9);
}

TEST(TextLayout, WrapsIntoWholeLineBoxesAndKeepsOnlyTheLinesAsked) {
    TextStyle style;
    style.font = UIFont::boldSystemFontOfSize(20);
    const double line = style.font.lineHeight();
    const NSAttributedString sentence("Your feedback was sent");

    TextLayout unwrapped(sentence, style, 0);
    EXPECT_EQ(unwrapped.lineCount(), 1);
    EXPECT_NEAR(unwrapped.size().height, line, 1e-3);

    TextLayout wrapped(sentence, style, 140);
    EXPECT_EQ(wrapped.lineCount(), 2);
    EXPECT_NEAR(wrapped.size().height, 2 * line, 1e-3);
    EXPECT_LE(wrapped.size().width, 140);

    style.numberOfLines = 1;
    EXPECT_EQ(TextLayout(sentence, style, 140).lineCount(), 1);
    style.numberOfLines = 0;
    EXPECT_EQ(TextLayout(sentence, style, 140, line * 1.5).lineCount(), 1);  // height limits
}

// A height keeps the lines that fit across paragraphs too (Pango alone keeps one line of each
// paragraph), the last one ending in an ellipsis; the first line always stays.
TEST(TextLayout, HeightLimitsTextOfSeveralParagraphs) {
    TextStyle style;
    style.font = *UIFont::fontWithName("HelveticaNeue-Bold", 16);
    const double line = style.font.lineHeight();
    const NSAttributedString lines("1\n2\n3\n4\n5\n6\n7\n8");
    EXPECT_EQ(TextLayout(lines, style, 300).lineCount(), 8);

    TextLayout limited(lines, style, 300, line * 3.5);
    EXPECT_EQ(limited.lineCount(), 3);
    EXPECT_NEAR(limited.size().height, 3 * line, 1e-3);
    EXPECT_EQ(TextLayout(lines, style, 300, line / 2).lineCount(), 1);
    // Wrapped paragraphs: two lines of the first and one of the second fit.
    const NSAttributedString paragraphs(
        "The checkout button does nothing\nwhen I tap it twice\nagain");
    TextLayout mixed(paragraphs, style, 150, line * 3);
    EXPECT_EQ(mixed.lineCount(), 3);
}

// Trimming as the phone's whitespace-and-newline set does it: both ends only, Unicode spaces
// and line separators included, anything else kept.
TEST(Text, TrimmingRemovesWhitespaceAndNewlinesAtBothEnds) {
    EXPECT_EQ(stringByTrimmingWhitespaceAndNewlineCharacters("  a b\t\n"), "a b");
    EXPECT_EQ(stringByTrimmingWhitespaceAndNewlineCharacters(" \r\n\t\v\f "), "");
    EXPECT_EQ(stringByTrimmingWhitespaceAndNewlineCharacters(""), "");
    // No-break space, ideographic space, line separator, next line.
    EXPECT_EQ(stringByTrimmingWhitespaceAndNewlineCharacters(
                  "\u00A0\u3000\u2028\u0085ann@x.io\u2029\u202F"),
              "ann@x.io");
    // Zero-width space and other letters are not white space; invalid bytes stay.
    EXPECT_EQ(stringByTrimmingWhitespaceAndNewlineCharacters("\u200Bx "), "\u200Bx");
    EXPECT_EQ(stringByTrimmingWhitespaceAndNewlineCharacters(" \xFF "), "\xFF");
    EXPECT_EQ(stringByTrimmingWhitespaceAndNewlineCharacters(" \xE3\x80"), "\xE3\x80");
    EXPECT_EQ(stringByTrimmingWhitespaceAndNewlineCharacters("\xF0\x9F\x98\x80 "),
              "\xF0\x9F\x98\x80");
}

// "Shake" in blue over dark text, bold 20, centred: the colour ranges reach the pixels.
TEST(Label, DrawsAttributedColourRangesCentredInItsBounds) {
    testing::TestRuntime test;
    const std::string message = "Shake bug";
    NSAttributedString text(message);
    text.addAttributes({.foregroundColor = tarvik_drawBlueColor()},
                       rangeOfString(message, "Shake"));
    UILabel label({{0, 0}, {200, 60}});
    label.setAttributedText(text);
    label.setFont(UIFont::boldSystemFontOfSize(20));
    label.setTextColor(tarvik_darkTextColor());
    label.setTextAlignment(NSTextAlignment::Center);
    EXPECT_FALSE(label.isUserInteractionEnabled());

    const Image image = *SoftwareRenderer::render(label, 1);
    const double width = TextLayout(text, {.font = label.font()}, 0).size().width;
    const int left = static_cast<int>((200 - width) / 2);
    int blue = 0, dark = 0, outside = 0;
    for (int y = 0; y < 60; ++y) {
        for (int x = 0; x < 200; ++x) {
            const Image::Pixel pixel = image.pixelAt(x, y);
            if (pixel.alpha < 250) {
                continue;
            }
            const bool inText = x >= left && x < 200 - left && y >= 18 && y < 42;
            outside += !inText;
            blue += pixel.blue > 200 && pixel.red < 80 && x < 100;
            dark += pixel.red == 57 && pixel.green == 63 && pixel.blue == 71 && x > 100;
        }
    }
    EXPECT_GT(blue, 40);
    EXPECT_GT(dark, 20);
    EXPECT_EQ(outside, 0);
}

}  // namespace
}  // namespace tarvik
