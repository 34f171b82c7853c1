// The tokenizer, the parser and the base handler's rewrite.
#include <gtest/gtest.h>

#include "content/ContentParser.h"
#include "content/ContentTokenizer.h"
#include "tests/content/ContentTestUtil.h"

namespace {

TEST(ContentRewrite, CompactFormWithOperandsAsRead) {
    EXPECT_EQ(Rewrite("  1  0 0 1 0.50 -.5 cm\r\n/F1  12 Tf\n[(a) -20.0 (b)]TJ % note ( [\nBT ET"),
              "1 0 0 1 0.50 -.5 cm /F1 12 Tf [(a) -20.0 (b)] TJ BT ET ");
    // Hexadecimal strings come out literal; names keep their escapes.
    EXPECT_EQ(Rewrite("<41 4 2>Tj /A#20B gs"), "(AB) Tj /A#20B gs ");
    // Nested arrays and dictionaries, both boolean spellings, null.
    EXPECT_EQ(Rewrite("/Span<</A[1[2]<</B TRUE>>]/C FALSE/D null/E(x\\)y)>>BDC EMC"),
              "/Span <</A [1 [2] <</B true>>] /C false /D null /E (x\\)y)>> BDC EMC ");
}

TEST(ContentRewrite, StringEscapesAreDecodedAndReencoded) {
    EXPECT_EQ(Rewrite("(a\\nb\\101\\\r\nc(d)e\\q) Tj"), "(a\nbAc\\(d\\)eq) Tj ");
    // A bare CR inside a string reads as a newline.
    EXPECT_EQ(Rewrite("(a\r\nb\rc) Tj"), "(a\nb\nc) Tj ");
}

TEST(ContentRewrite, RewritingTwiceChangesNothing) {
    const char* src =
        "q 0.5 0 0 0.5 10 10 cm BT /F1 9 Tf 1 0 0 1 72 700 Tm (Hello \\(world\\)) Tj "
        "[<0041> 120 <0042>] TJ ET /GS1 gs 0 0 1 rg 10 10 m 20 20 l S "
        "BI /W 2 /H 1 /BPC 8 /CS /G ID \x01\x02\nEI Q";
    std::string once = Rewrite(src);
    EXPECT_EQ(Rewrite(once), once);
}

TEST(ContentRewrite, WrongOperandCountsAreLoggedAndDropped) {
    CapturedLog cap;
    EXPECT_EQ(Rewrite("0.5 0.5 0.5 0.5 g 0.5 g", &cap.log), "0.5 g ");
    EXPECT_EQ(cap.Text(), "   GrayFill: TOO MANY PARAMS\n ");
    CapturedLog cap2;
    EXPECT_EQ(Rewrite("g 1 2 3 4 5 cm 1 2 3 Tj", &cap2.log), "");
    EXPECT_EQ(cap2.Text(),
              "   GrayFill: TOO MANY PARAMS\n    ConcatenateMatrix: TOO MANY PARAMS!\n"
              "   DisplayText: TOO MANY PARAMS!\n");
    CapturedLog cap3;
    EXPECT_EQ(Rewrite("1 2 \" 1 2 re 1 2 ri /Im Do /Im /Im Do (a) ' 1 2 3 Td", &cap3.log), "/Im Do (a) ' ");
    EXPECT_EQ(cap3.Text(),
              "   MoveSetDisplayText: TOO MANY PARAMS!\n   Rectangle: TOO MANY PARAMS!\n"
              "   RenderingIntent: TOO MANY PARAMS\n    ExecuteXObject: TOO MANY PARAMS\n "
              "   TextDestination: TOO MANY PARAMS!\n");
}

TEST(ContentRewrite, DashNeedsAnArrayAndAPhase) {
    CapturedLog cap;
    EXPECT_EQ(Rewrite("[3] d 3 0 d [3 1] 0 d", &cap.log), "[3 1] 0 d ");
    EXPECT_EQ(cap.Text(), "   SetDash: TOO MANY PARAMS\n    SetDash: FIRST PARAM NOT ARRAY!\n ");
}

TEST(ContentRewrite, FBecomesFAndUnknownOperatorsVanish) {
    CapturedLog cap;
    EXPECT_EQ(Rewrite("0 0 m 1 1 l F 1 2 PS 3 xyz f* 1 w", &cap.log), "0 0 m 1 1 l f f* 1 w ");
    EXPECT_EQ(cap.Text(), "");
    // Operands of operators without a count pass as they are.
    EXPECT_EQ(Rewrite("0.1 0.2 sc /P1 scn 1 SC /Pat SCN 0 0 d0 1 0 0 0 1 1 d1 BX EX"),
              "0.1 0.2 sc /P1 scn 1 SC /Pat SCN 0 0 d0 1 0 0 0 1 1 d1 BX EX ");
}

TEST(ContentRewrite, RestoreWithoutSaveLogsAndKeepsTheStacks) {
    CapturedLog cap;
    ContentHandler h(&cap.log);
    h.RunContent(Bytes("Q 2 0 0 2 0 0 cm q 3 0 0 3 0 0 cm Q"));
    EXPECT_TRUE(h.Mismatched());
    EXPECT_EQ(cap.Text(), "Mismatched Save/Restore of graphic state!\n");
    EXPECT_EQ(h.StateDepth(), 1u);
    EXPECT_DOUBLE_EQ(h.State().ctm.a, 2);
    EXPECT_EQ(h.Out().Text(), "Q 2 0 0 2 0 0 cm q 3 0 0 3 0 0 cm Q ");
}

TEST(ContentRewrite, MarkedContentRemoval) {
    const char* src = "/Layer <</Title (L1)>> BDC 0 0 m /Span <</ActualText (x)>> BDC (a) Tj EMC EMC "
                      "/Layer BMC 1 1 l EMC /Tx BMC EMC /DocumentSetup <<>> DP /Mine <<>> DP";
    CapturedLog off;
    EXPECT_EQ(Rewrite(src, &off.log), Rewrite(Rewrite(src)));
    EXPECT_EQ(off.Text(), "");
    CapturedLog on;
    EXPECT_EQ(Rewrite(src, &on.log, true),
              "0 0 m /Span <</ActualText (x)>> BDC (a) Tj EMC 1 1 l /Tx BMC EMC /Mine <<>> DP ");
    EXPECT_EQ(on.Text(), "Unknown DP operator 'Mine'\n");
    CapturedLog unknown;
    Rewrite("/Odd BDC EMC /Odd BDC EMC /Weird BMC EMC /Artifact BMC EMC", &unknown.log, true);
    EXPECT_EQ(unknown.Text(), "Unknown BDC operator 'Odd'\nUnknown BMC operator 'Weird'\n");
    // A sequence without a tag is dropped with its EMC.
    EXPECT_EQ(Rewrite("BMC 1 w EMC EMC"), "1 w EMC ");
}

TEST(ContentRewrite, RenderingIntentRemoval) {
    ContentHandler h;
    h.SetRemoveRenderingIntents(true);
    h.RunContent(Bytes("/Perceptual ri 1 w"));
    EXPECT_EQ(h.Out().Text(), "1 w ");
    EXPECT_EQ(Rewrite("/Perceptual ri"), "/Perceptual ri ");
}

TEST(InlineImages, UnfilteredDataContainingEIIsReadByLength) {
    // Four grey pixels "EI Q" inside the data: the length decides.
    std::string src = "q BI /W 4 /H 1 /BPC 8 /CS /G ID EI Q\nEI Q";
    EXPECT_EQ(Rewrite(src), "q BI /W 4 /H 1 /BPC 8 /CS /G ID EI Q\nEI Q ");
    // Long keys and an RGB image whose data ends in white space.
    std::string rgb = "BI /Width 1 /Height 2 /BitsPerComponent 8 /ColorSpace /DeviceRGB ID abc de \nEI";
    EXPECT_EQ(Rewrite(rgb), "BI /Width 1 /Height 2 /BitsPerComponent 8 /ColorSpace /DeviceRGB ID abc de\nEI ");
}

TEST(InlineImages, FilteredDataEndsAtAnEIFollowedByContent) {
    // Images whose data runs into EI without white space, one after another.
    EXPECT_EQ(Rewrite("BI /CS /Cs1 /W 1 /H 1 /BPC 8 ID aEI BI /CS /Cs1 /W 1 /H 1 /BPC 8 ID bEI Q"),
              "BI /CS /Cs1 /W 1 /H 1 /BPC 8 ID a\nEI BI /CS /Cs1 /W 1 /H 1 /BPC 8 ID b\nEI Q ");
    // An A85 image ending "~>EI" without white space.
    EXPECT_EQ(Rewrite("BI /W 1 /H 1 /BPC 8 /CS /G /F /A85 ID z~>EI Q"),
              "BI /W 1 /H 1 /BPC 8 /CS /G /F /A85 ID z~>\nEI Q ");
    // A colour space named in the resources is not known to the tokenizer
    // without them, so the end is searched for.
    EXPECT_EQ(Rewrite("BI /W 2 /H 1 /BPC 8 /CS /Cs1 ID ab\nEI n"), "BI /W 2 /H 1 /BPC 8 /CS /Cs1 ID ab\nEI n ");
}

TEST(InlineImages, DataHoldingAnEndMarkerIsWrittenInHex) {
    // Each image's data holds an "EI" that a reader could stop at; which one
    // the search takes depends on what follows, so the rewrite writes the
    // data in hexadecimal (no I among hex digits) and reads back the same.
    struct Case {
        std::string src, expected;
    };
    const Case cases[] = {
        // "EI" followed by binary bytes in Flate data: not the end.
        {"BI /W 8 /H 8 /BPC 8 /CS /G /F /Fl ID " + std::string("x\x9c EI \x01\x02\x03\xff", 10) + "\nEI 1 w",
         "BI /W 8 /H 8 /BPC 8 /CS /G /F [/AHx /Fl] ID 789C20454920010203FF>\nEI 1 w "},
        // Printable text after an "EI" inside the data is not enough: it
        // must read as operators.  Decode parameters get a null in front.
        {"BI /W 9 /H 9 /BPC 1 /CS /G /F /AHx /DP <<>> ID 41 EI zz yy 42\r\nEI Q",
         "BI /W 9 /H 9 /BPC 1 /CS /G /F [/AHx /AHx] /DP [null <<>>] ID 3431204549207A7A207979203432>\nEI Q "},
        // Data whose last bytes spell EI, in a filter array.
        {"BI /W 2 /H 1 /CS /G /BPC 8 /F [/AHx] /DP [null] ID 00ff>\nEIEI 1 w",
         "BI /W 2 /H 1 /CS /G /BPC 8 /F [/AHx /AHx] /DP [null null] ID 303066663E0A4549>\nEI 1 w "},
        // Unfiltered data of unknown length (the colour space lies in the
        // resources); parameters without a filter are dropped.
        {"BI /W 2 /H 1 /BPC 8 /CS /Cs1 /DP <</K 1>> ID EI\nEI n",
         "BI /W 2 /H 1 /BPC 8 /CS /Cs1 /DP null /F /AHx ID 4549>\nEI n "},
    };
    for (const Case& c : cases) {
        std::string once = Rewrite(c.src);
        EXPECT_EQ(once, c.expected);
        EXPECT_EQ(Rewrite(once), once);
    }
    // Unfiltered data whose length the dictionary gives stays as it is.
    EXPECT_EQ(Rewrite("BI /W 4 /H 1 /BPC 8 /CS /G ID EI Q\nEI Q"), "BI /W 4 /H 1 /BPC 8 /CS /G ID EI Q\nEI Q ");
}

TEST(InlineImages, MissingEIAndMissingIDEndCleanly) {
    CapturedLog cap;
    std::string out = Rewrite("1 w BI /W 4 /H 4 /BPC 8 /CS /G /F /Fl ID \x01\x02\x03", &cap.log);
    EXPECT_EQ(out, "1 w BI /W 4 /H 4 /BPC 8 /CS /G /F /Fl ID \x01\x02\x03\nEI ");
    EXPECT_NE(cap.Text().find("1 inline images without EI"), std::string::npos);
    // A dictionary that runs into an operator loses the image, not the page.
    EXPECT_EQ(Rewrite("BI /W 4 /H 4 re f 1 w"), "f 1 w ");
    EXPECT_EQ(Rewrite("BI /W 4 EI 1 w"), "1 w ");
    EXPECT_EQ(Rewrite("1 w EI 2 w"), "1 w 2 w ");
}

TEST(ContentRobustness, DamagedTokensEndInAWarningNotALostPage) {
    CapturedLog cap;
    // A stray ')' and '}' are skipped; an array cut short by an operator
    // ends there; an unterminated string runs to the end.
    EXPECT_EQ(Rewrite(") } 1 w [1 2 re 0 0 m (abc", &cap.log), "1 w 0 0 m ");
    std::string text = cap.Text();
    EXPECT_NE(text.find("1 unterminated strings, 1 unterminated arrays"), std::string::npos) << text;
    // Malformed numbers keep the value their leading part spells.
    EXPECT_EQ(Rewrite("--5 w 1.2.3 w -.5x w . w"), "0 w 1.2 w -0.5 w 0 w ");
    // Bad hex digits are ignored; an odd digit count pads with zero.
    EXPECT_EQ(Rewrite("<4G14> Tj <414> Tj"), "(A@) Tj (A@) Tj ");
}

TEST(ContentRobustness, HugeOperandStacksAndDeepNestingStayBounded) {
    std::string many;
    for (int i = 0; i < 1000000; ++i) many += "1 ";
    many += "w 2 w";
    CapturedLog cap;
    EXPECT_EQ(Rewrite(many, &cap.log), "2 w ");
    EXPECT_NE(cap.Text().find("   SetLineWidth: TOO MANY PARAMS\n "), std::string::npos);
    EXPECT_NE(cap.Text().find("operands dropped"), std::string::npos);

    std::string deep(100000, '[');
    deep += " 1 w";
    CapturedLog cap2;
    std::string out = Rewrite(deep + " 3 w", &cap2.log);
    EXPECT_EQ(out.substr(out.size() - 4), "3 w ");
    EXPECT_NE(cap2.Text().find("nested too deeply"), std::string::npos);

    std::string wide = "[";
    for (int i = 0; i < 300000; ++i) wide += "1 ";
    wide += "] 0 d 1 w";
    CapturedLog cap3;
    std::string out3 = Rewrite(wide, &cap3.log);
    EXPECT_EQ(out3.substr(out3.size() - 4), "1 w ");
    EXPECT_LT(out3.size(), 2u * (ContentTokenizer::kMaxOperandTokens + 10));
}

TEST(ContentRobustness, ManySavesAndRestoresStayBounded) {
    std::string src;
    for (int i = 0; i < 100000; ++i) src += "q ";
    for (int i = 0; i < 100001; ++i) src += "Q ";
    CapturedLog cap;
    ContentHandler h(&cap.log);
    h.RunContent(Bytes(src));
    EXPECT_EQ(h.StateDepth(), 1u);
    EXPECT_TRUE(h.Mismatched());
    EXPECT_EQ(cap.Text(), "Mismatched Save/Restore of graphic state!\n");
    // Below the cap the states are real copies; above it they share the top.
    ContentHandler deep;
    std::string nest;
    for (int i = 0; i < 5000; ++i) nest += "q ";
    deep.RunContent(Bytes(nest));
    EXPECT_EQ(deep.StateDepth(), ContentHandler::kMaxStateDepth);
    std::string scaled = "q 2 0 0 2 0 0 cm " + nest + "Q Q 3 0 0 3 0 0 cm";
    for (int i = 0; i < 4999; ++i) scaled += " Q";
    ContentHandler back(&cap.log);
    back.RunContent(Bytes(scaled));
    EXPECT_DOUBLE_EQ(back.State().ctm.a, 1);
    EXPECT_FALSE(back.Mismatched());
}

TEST(ContentTokenizer, KindsAndOperatorViews) {
    ContentTokenizer tok(Bytes("12 -3.5 /N (s) <6869> [1] <</K 1>> true FALSE null Tj"));
    ContentToken t;
    std::string_view op;
    std::vector<ContentTokenKind> kinds;
    while (tok.Next(t, op) == ContentTokenizer::Result::Operand) kinds.push_back(t.kind);
    EXPECT_EQ(op, "Tj");
    std::vector<ContentTokenKind> want = {
        ContentTokenKind::Integer, ContentTokenKind::Real,    ContentTokenKind::Name,
        ContentTokenKind::String,  ContentTokenKind::String,  ContentTokenKind::Array,
        ContentTokenKind::Dictionary, ContentTokenKind::Boolean, ContentTokenKind::Boolean,
        ContentTokenKind::Null};
    EXPECT_EQ(kinds, want);
    EXPECT_EQ(tok.Next(t, op), ContentTokenizer::Result::End);
}

TEST(ContentTokenizer, NumberValues) {
    ContentTokenizer tok(Bytes("12 -3.5 .25 +7 -.5 5. 0.1234567890123456789 123456789012345678 --5 1.2.3 Tj"));
    ContentToken t;
    std::string_view op;
    std::vector<double> values;
    std::vector<std::string> texts;
    while (tok.Next(t, op) == ContentTokenizer::Result::Operand) {
        values.push_back(t.number);
        texts.push_back(t.text);
    }
    std::vector<double> want = {12, -3.5, 0.25, 7, -0.5, 5, 0.1234567890123456789, 123456789012345678.0, 0, 1.2};
    ASSERT_EQ(values.size(), want.size());
    for (size_t i = 0; i < want.size(); ++i) EXPECT_DOUBLE_EQ(values[i], want[i]) << i;
    EXPECT_EQ(texts[3], "+7");
    EXPECT_EQ(texts[5], "5.");
}

using PageContent = ContentDoc;

TEST_F(PageContent, AnArrayOfStreamsReadsAsOneSequence) {
    CosObj page = CosNewDict(doc, true);
    CosObj arr = CosNewArray(doc, false);
    CosArrayAppend(arr, NewStream(doc, "q 1 0 0"));
    CosArrayAppend(arr, NewStream(doc, "1 0 0 cm"));
    CosArrayAppend(arr, CosNewInteger(doc, false, 7));  // not a stream: skipped
    CosArrayAppend(arr, NewStream(doc, "Q"));
    Put(page, "Contents", arr);
    ContentHandler h;
    h.RunPage(page);
    EXPECT_EQ(h.Out().Text(), "q 1 0 0 1 0 0 cm Q ");
}

}  // namespace
