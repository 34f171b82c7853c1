// The document clean-up steps on small documents built here: what each step
// removes, what it keeps, its counters and report lines, and how damaged
// catalogs and trees are skipped.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "base/Log.h"
#include "filters/Filters.h"
#include "pdfcore/CosDoc.h"
#include "pdfcore/CosNames.h"
#include "pipeline/DocumentCleanup.h"
#include "pipeline/DocumentCleanupTrees.h"
#include "pipeline/Report.h"
#include "settings/TrimoraPreferences.h"

namespace {

using namespace pipeline;

ASAtom A(const char* s) { return ASAtomFromString(s); }

struct CapturedLog {
    CapturedLog() : out(tmpfile()), err(tmpfile()) {
        log.SetConsoleStreams(out, err);
        log.SetFileLoggingAllowed(false);
    }
    ~CapturedLog() {
        fclose(out);
        fclose(err);
    }
    static std::string Read(FILE* f) {
        fflush(f);
        std::string s;
        rewind(f);
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, f)) > 0) s.append(buf, n);
        return s;
    }
    std::string All() { return Read(out) + Read(err); }
    FILE* out;
    FILE* err;
    Log log;
};

class DocumentCleanupTest : public ::testing::Test {
protected:
    void SetUp() override {
        prefs.SetLog(&cap.log);
        Statistics(prefs.StatisticsDict()).Reset();
        pd = PDDocCreate();
        doc = PDDocGetCosDoc(pd);
        cat = CosDocGetRoot(doc);
        // Everything off that the defaults switch on, so each test turns
        // on what it looks at.
        OptimizeSettings& o = prefs.Optimize();
        o.removeEditData = o.removeMetadata = o.removeJobTicket = o.removeTags = false;
        o.removeEmbeddedFiles = o.removeOCGs = false;
    }
    void TearDown() override { PDDocClose(pd); }

    CosObj AddPage() {
        CosObj pages = CosDictGet(cat, cosnames::Pages);
        CosObj page = CosNewDict(doc, true);
        CosDictPutName(page, cosnames::Type, false, cosnames::Page);
        CosDictPut(page, cosnames::Parent, pages);
        CosDictPut(page, cosnames::Resources, CosNewDict(doc, false));
        CosArrayAppend(CosDictGet(pages, cosnames::Kids), page);
        CosDictPutInteger(pages, cosnames::Count, CosArrayLength(CosDictGet(pages, cosnames::Kids)));
        PDDocPagesChanged(pd);
        return page;
    }
    CosObj Dict(bool indirect = false) { return CosNewDict(doc, indirect); }
    CosObj Str(const char* s) { return CosNewString(doc, false, s); }
    CosObj Name(const char* s) { return CosNewName(doc, false, A(s)); }
    CosObj Int(int v) { return CosNewInteger(doc, false, v); }
    CosObj Arr(std::initializer_list<CosObj> items) {
        CosObj a = CosNewArray(doc, false);
        for (CosObj o : items) CosArrayAppend(a, o);
        return a;
    }
    // An explicit destination to `page`.
    CosObj Fit(CosObj page) { return Arr({page, Name("Fit")}); }
    // A label range dictionary.
    CosObj Range(const char* style, int start = 0, const char* prefix = nullptr) {
        CosObj r = Dict();
        if (style) CosDictPutName(r, A("S"), false, A(style));
        if (start) CosDictPutInteger(r, A("St"), start);
        if (prefix) CosDictPut(r, A("P"), Str(prefix));
        return r;
    }
    CosObj Stream(const std::string& text) {
        return CosNewStream(doc, Dict(), std::span<const uint8_t>(
                                              reinterpret_cast<const uint8_t*>(text.data()), text.size()));
    }
    CosObj NamesDict() {
        CosObj n = CosDictGet(cat, A("Names"));
        if (CosObjIsNull(n)) {
            n = Dict();
            CosDictPut(cat, A("Names"), n);
        }
        return n;
    }

    int Run() {
        RunContext ctx{pd, prefs, Statistics(prefs.StatisticsDict()), cap.log};
        return CleanUpDocument(ctx);
    }
    ASInt32 Stat(const char* key) { return Statistics(prefs.StatisticsDict()).Get(key); }
    std::string ReportText() {
        return BuildReport(ReportInputs{}, Statistics(prefs.StatisticsDict()), "   ");
    }
    bool Has(CosObj d, const char* key) { return CosDictKnown(d, A(key)); }

    CapturedLog cap;
    CTrimoraPreferences prefs;
    PDDoc pd = nullptr;
    CosDoc doc = nullptr;
    CosObj cat = nullptr;
};

TEST_F(DocumentCleanupTest, PrivateCatalogDataIsAlwaysRemovedAndCountedPerKey) {
    for (const char* k : {"QITE_cache_2", "CAPT_Info", "FICL:Enfocus"}) CosDictPut(cat, A(k), Dict());
    CosDictPut(cat, A("CSML:PProt"), CosNewNull());  // a null entry is not present
    CosDictPut(cat, A("JT"), Dict());
    Run();
    EXPECT_FALSE(Has(cat, "QITE_cache_2"));
    EXPECT_TRUE(Has(cat, "JT"));
    EXPECT_EQ(Stat("EditData_Removed"), 3);

    prefs.Optimize().removeJobTicket = true;
    Run();
    for (const char* k : {"QITE_cache_2", "CAPT_Info", "FICL:Enfocus", "JT"}) EXPECT_FALSE(Has(cat, k)) << k;
    EXPECT_EQ(Stat("EditData_Removed"), 3);  // nothing left to count a second time
    EXPECT_EQ(Stat("JobTicket_Removed"), 1);
    const std::string report = ReportText();
    EXPECT_NE(report.find("Removed 3 unnecessary Edit Data\n"), std::string::npos) << report;
    EXPECT_NE(report.find("Removed 1 unnecessary Job Tickets\n"), std::string::npos) << report;
}

TEST_F(DocumentCleanupTest, OutlineGoesByItsCountOrByTheSetting) {
    CosObj page = AddPage();
    auto outline = [&](CosObj count) {
        CosObj root = Dict(true);
        CosObj item = Dict(true);
        CosDictPut(item, A("Title"), Str("Closed"));
        CosDictPut(item, A("Dest"), Fit(page));
        CosDictPut(item, A("Parent"), root);
        CosDictPut(root, A("First"), item);
        CosDictPut(root, A("Last"), item);
        if (count) CosDictPut(root, A("Count"), count);
        CosDictPut(cat, A("Outlines"), root);
        return root;
    };
    outline(Int(0));  // all items closed: counts as empty
    Run();
    EXPECT_FALSE(Has(cat, "Outlines"));
    EXPECT_TRUE(Statistics(prefs.StatisticsDict()).GetFlag("EmptyOutline_Removed"));
    EXPECT_NE(ReportText().find("Removed unnecessary Empty Bookmarks\n"), std::string::npos);

    Statistics(prefs.StatisticsDict()).Reset();
    outline(nullptr);  // no Count at all
    Run();
    EXPECT_FALSE(Has(cat, "Outlines"));

    Statistics(prefs.StatisticsDict()).Reset();
    outline(Int(1));
    Run();
    EXPECT_TRUE(Has(cat, "Outlines"));
    EXPECT_FALSE(Statistics(prefs.StatisticsDict()).GetFlag("EmptyOutline_Removed"));

    prefs.Optimize().removeOutlines = true;
    Run();
    EXPECT_FALSE(Has(cat, "Outlines"));
    EXPECT_TRUE(Statistics(prefs.StatisticsDict()).GetFlag("OutlineTree_Removed"));
    EXPECT_FALSE(Statistics(prefs.StatisticsDict()).GetFlag("EmptyOutline_Removed"));
}

TEST_F(DocumentCleanupTest, DamagedCatalogEntriesAreSkippedWithAWarning) {
    AddPage();
    CosDictPut(cat, A("Outlines"), Int(7));
    CosDictPut(cat, A("PageLabels"), Str("i"));
    CosDictPut(cat, A("Names"), Arr({Str("x")}));
    prefs.Optimize().removePageLabels = A("Remove");
    prefs.Optimize().removeNamedDests = A("Remove");
    prefs.Optimize().removeEmbeddedFiles = true;
    EXPECT_EQ(Run(), 0);
    EXPECT_TRUE(Has(cat, "Outlines"));
    EXPECT_TRUE(Has(cat, "PageLabels"));
    EXPECT_TRUE(Has(cat, "Names"));
    EXPECT_FALSE(Statistics(prefs.StatisticsDict()).GetFlag("PageLabels_Removed"));
    EXPECT_FALSE(Statistics(prefs.StatisticsDict()).GetFlag("EmptyOutline_Removed"));
    const std::string log = cap.All();
    EXPECT_NE(log.find("The catalog's Outlines is not a dictionary"), std::string::npos) << log;
    EXPECT_NE(log.find("The catalog's PageLabels is not a dictionary"), std::string::npos) << log;
    EXPECT_NE(log.find("The catalog's Names is not a dictionary"), std::string::npos) << log;
}

TEST_F(DocumentCleanupTest, KeptOutlineWithALoopIsReportedAndLeftAlone) {
    CosObj root = Dict(true), a = Dict(true), b = Dict(true);
    CosDictPut(root, A("First"), a);
    CosDictPut(a, A("Next"), b);
    CosDictPut(b, A("Next"), a);  // back to the first item
    CosDictPut(root, A("Count"), Int(2));
    CosDictPut(cat, A("Outlines"), root);
    EXPECT_EQ(Run(), 0);
    EXPECT_TRUE(Has(cat, "Outlines"));
    EXPECT_NE(cap.All().find("Skipping part of the outline tree: an item is reached twice"), std::string::npos);
}

TEST_F(DocumentCleanupTest, TaggingGoesWithEveryReferenceIntoTheStructure) {
    prefs.Optimize().removeTags = true;
    CosObj page = AddPage();
    CosDictPut(cat, A("StructTreeRoot"), Dict(true));
    CosObj mark = Dict();
    CosDictPut(mark, A("Marked"), CosNewBoolean(doc, false, true));
    CosDictPut(cat, A("MarkInfo"), mark);
    CosDictPutInteger(page, A("StructParents"), 0);
    CosObj annot = Dict(true);
    CosDictPutInteger(annot, A("StructParent"), 1);
    CosDictPut(page, A("Annots"), Arr({annot}));
    CosObj form = Stream("0 0 m");
    CosDictPutName(form, A("Subtype"), false, A("Form"));
    CosDictPutInteger(form, A("StructParents"), 2);
    CosObj xobjects = Dict();
    CosDictPut(xobjects, A("Fm1"), form);
    CosDictPut(CosDictGet(page, cosnames::Resources), A("XObject"), xobjects);
    Run();
    EXPECT_FALSE(Has(cat, "StructTreeRoot"));
    EXPECT_FALSE(Has(cat, "MarkInfo"));
    EXPECT_FALSE(Has(page, "StructParents"));
    EXPECT_FALSE(Has(annot, "StructParent"));
    EXPECT_FALSE(Has(form, "StructParents"));
    EXPECT_NE(ReportText().find("Removed unnecessary Tagging\n"), std::string::npos);
}

TEST_F(DocumentCleanupTest, RemovedNamedDestinationsLeaveExplicitOnesBehind) {
    prefs.Optimize().removeNamedDests = A("Remove");
    CosObj p1 = AddPage(), p2 = AddPage();
    // The old-style dictionary, keyed by names.
    CosObj dests = Dict(true);
    CosDictPut(dests, A("Chap1"), Fit(p1));
    CosDictPut(cat, A("Dests"), dests);
    // The name tree, as a Kids tree of two leaves; the second value is a
    // dictionary holding D.
    CosObj leaf1 = Dict(true), leaf2 = Dict(true), root = Dict(true);
    CosDictPut(leaf1, A("Names"), Arr({Str("a-first"), Fit(p1)}));
    CosObj wrapped = Dict();
    CosDictPut(wrapped, A("D"), Arr({p2, Name("XYZ"), Int(0), Int(700), CosNewNull()}));
    CosDictPut(leaf2, A("Names"), Arr({Str("sec2"), wrapped}));
    CosDictPut(root, A("Kids"), Arr({leaf1, leaf2}));
    CosDictPut(NamesDict(), A("Dests"), root);

    CosObj outlineRoot = Dict(true), item = Dict(true);
    CosDictPut(item, A("Dest"), Name("Chap1"));
    CosDictPut(outlineRoot, A("First"), item);
    CosDictPut(outlineRoot, A("Count"), Int(1));
    CosDictPut(cat, A("Outlines"), outlineRoot);

    auto action = [&](const char* s, CosObj d) {
        CosObj a = Dict();
        CosDictPutName(a, A("S"), false, A(s));
        CosDictPut(a, A("D"), d);
        return a;
    };
    CosObj link = Dict(true), remote = Dict(true), unknown = Dict(true);
    CosDictPut(link, A("A"), action("GoTo", Str("sec2")));
    CosDictPut(remote, A("A"), action("GoToR", Str("sec2")));
    CosDictPut(unknown, A("Dest"), Str("nowhere"));
    CosDictPut(p1, A("Annots"), Arr({link, remote, unknown}));
    CosDictPut(cat, A("OpenAction"), action("GoTo", Name("sec2")));  // a name found only in the tree

    EXPECT_EQ(Run(), 0);
    EXPECT_FALSE(Has(cat, "Dests"));
    EXPECT_FALSE(Has(cat, "Names")) << "the Names left empty goes too";
    CosObj d = CosDictGet(item, A("Dest"));
    ASSERT_EQ(CosObjGetType(d), kCosArray);
    EXPECT_EQ(CosArrayGet(d, 0), p1);
    CosObj goTo = CosDictGet(CosDictGet(link, A("A")), A("D"));
    ASSERT_EQ(CosObjGetType(goTo), kCosArray);
    EXPECT_EQ(CosArrayGet(goTo, 0), p2);
    EXPECT_EQ(CosIntegerValue(CosArrayGet(goTo, 3)), 700);
    CosObj open = CosDictGet(CosDictGet(cat, A("OpenAction")), A("D"));
    ASSERT_EQ(CosObjGetType(open), kCosArray);
    EXPECT_EQ(CosArrayGet(open, 0), p2);
    // Another file's destination and an unknown name are left as they were.
    EXPECT_EQ(CosObjGetType(CosDictGet(CosDictGet(remote, A("A")), A("D"))), kCosString);
    EXPECT_EQ(CosObjGetType(CosDictGet(unknown, A("Dest"))), kCosString);
}

TEST_F(DocumentCleanupTest, NamedDestinationTreeWithALoopIsKeptButItsNamesStillResolve) {
    prefs.Optimize().removeNamedDests = A("Remove");
    CosObj p1 = AddPage();
    CosObj leaf = Dict(true), root = Dict(true);
    CosDictPut(leaf, A("Names"), Arr({Str("here"), Fit(p1)}));
    CosDictPut(leaf, A("Kids"), Arr({root}));  // back up to the root
    CosDictPut(root, A("Kids"), Arr({leaf}));
    CosDictPut(NamesDict(), A("Dests"), root);
    CosObj link = Dict(true);
    CosDictPut(link, A("Dest"), Str("here"));
    CosDictPut(p1, A("Annots"), Arr({link}));
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(CosObjGetType(CosDictGet(link, A("Dest"))), kCosArray);
    EXPECT_TRUE(Has(CosDictGet(cat, A("Names")), "Dests"));
    EXPECT_NE(cap.All().find("Skipping named destinations: the Dests name tree: a node is reached twice"),
              std::string::npos)
        << cap.All();
}

TEST_F(DocumentCleanupTest, TreeReaderBoundsDepthAndReportsBadParts) {
    // A chain deeper than any real tree.
    CosObj root = Dict(true), node = root;
    for (int i = 0; i < kMaxTreeDepth + 5; ++i) {
        CosObj kid = Dict(true);
        CosDictPut(node, A("Kids"), Arr({kid}));
        node = kid;
    }
    CosDictPut(node, A("Names"), Arr({Str("deep"), Int(1)}));
    TreeContents t = ReadTree(root, TreeKind::Names);
    EXPECT_TRUE(t.entries.empty());
    EXPECT_EQ(t.problem, "the tree is nested too deeply");

    CosObj leaf = Dict(true);
    CosDictPut(leaf, A("Names"), Arr({Str("a"), Int(1), Int(5), Int(2), Str("c")}));
    t = ReadTree(leaf, TreeKind::Names);
    ASSERT_EQ(t.entries.size(), 1u);  // the integer key is skipped, "c" has no value
    EXPECT_EQ(CosStringBytes(t.entries[0].key), "a");
    EXPECT_FALSE(t.problem.empty());
}

TEST_F(DocumentCleanupTest, PageLabelsArePlainOnlyWhenTheyReadAsPageNumbers) {
    auto labels = [&](std::initializer_list<std::pair<int, CosObj>> ranges) {
        CosObj nums = CosNewArray(doc, false);
        for (const auto& [page, range] : ranges) {
            CosArrayAppend(nums, Int(page));
            CosArrayAppend(nums, range);
        }
        CosObj d = Dict(true);  // owned by the document, as nothing holds it
        CosDictPut(d, A("Nums"), nums);
        return d;
    };
    EXPECT_TRUE(PageLabelsArePlain(labels({{0, Range("D")}}), 10));
    EXPECT_TRUE(PageLabelsArePlain(labels({{0, Range("D")}, {4, Range("D", 5)}}), 10));
    EXPECT_TRUE(PageLabelsArePlain(labels({}), 10));
    // Out of order in the file, still plain numbering.
    EXPECT_TRUE(PageLabelsArePlain(labels({{4, Range("D", 5)}, {0, Range("D")}}), 10));
    // A range starting past the last page labels nothing.
    EXPECT_TRUE(PageLabelsArePlain(labels({{0, Range("D")}, {10, Range("r")}}), 10));
    EXPECT_FALSE(PageLabelsArePlain(labels({{0, Range("D")}, {9, Range("r")}}), 10));
    EXPECT_FALSE(PageLabelsArePlain(labels({{0, Range("D", 2)}}), 10));
    EXPECT_FALSE(PageLabelsArePlain(labels({{0, Range("r")}}), 10));
    EXPECT_FALSE(PageLabelsArePlain(labels({{0, Range(nullptr)}}), 10));
    EXPECT_FALSE(PageLabelsArePlain(labels({{0, Range("D", 0, "A-")}}), 10));
    EXPECT_TRUE(PageLabelsArePlain(labels({{0, Range("D", 0, "")}}), 10));
    EXPECT_FALSE(PageLabelsArePlain(labels({{1, Range("D", 2)}}), 10)) << "page 1 would have no label";
    EXPECT_FALSE(PageLabelsArePlain(labels({{0, Range("D")}, {3, Range("D")}}), 10)) << "numbering restarts";

    // The same as a Kids tree, and one with a loop.
    CosObj leaf = labels({{0, Range("D")}});
    CosObj root = Dict(true);
    CosDictPut(root, A("Kids"), Arr({leaf}));
    EXPECT_TRUE(PageLabelsArePlain(root, 3));
    CosObj loopLeaf = Dict(true), loopRoot = Dict(true);
    CosDictPut(loopLeaf, A("Nums"), Arr({Int(0), Range("D")}));
    CosDictPut(loopLeaf, A("Kids"), Arr({loopRoot}));
    CosDictPut(loopRoot, A("Kids"), Arr({loopLeaf}));
    std::string problem;
    EXPECT_FALSE(PageLabelsArePlain(loopRoot, 3, &problem));
    EXPECT_NE(problem.find("loop"), std::string::npos);
}

TEST_F(DocumentCleanupTest, PageLabelStepFollowsTheSetting) {
    for (int i = 0; i < 3; ++i) AddPage();
    auto put = [&](const char* style) {
        CosObj d = Dict();
        CosDictPut(d, A("Nums"), Arr({Int(0), Range(style)}));
        CosDictPut(cat, A("PageLabels"), d);
    };
    put("r");
    prefs.Optimize().removePageLabels = A("None");
    Run();
    EXPECT_TRUE(Has(cat, "PageLabels"));
    prefs.Optimize().removePageLabels = A("RemoveUnused");
    Run();
    EXPECT_TRUE(Has(cat, "PageLabels")) << "roman numerals say something";
    EXPECT_FALSE(Statistics(prefs.StatisticsDict()).GetFlag("PageLabels_Removed"));
    put("D");
    Run();
    EXPECT_FALSE(Has(cat, "PageLabels"));
    EXPECT_NE(ReportText().find("Removed unnecessary Page Labels\n"), std::string::npos);
    put("r");
    prefs.Optimize().removePageLabels = A("Remove");
    Run();
    EXPECT_FALSE(Has(cat, "PageLabels"));
}

TEST_F(DocumentCleanupTest, OptionalContentGoesWithTheEntriesNamingItsGroups) {
    CosObj page = AddPage();
    CosObj group = Dict(true);
    CosDictPutName(group, A("Type"), false, A("OCG"));
    CosObj props = Dict();
    CosDictPut(props, A("OCGs"), Arr({group}));
    CosDictPut(cat, A("OCProperties"), props);
    CosObj annot = Dict(true);
    CosDictPut(annot, A("OC"), group);
    CosDictPut(page, A("Annots"), Arr({annot}));
    CosObj form = Stream("/OC /P1 BDC 0 0 1 1 re f EMC");
    CosDictPutName(form, A("Subtype"), false, A("Form"));
    CosDictPut(form, A("OC"), group);
    CosObj xobjects = Dict(), properties = Dict();
    CosDictPut(xobjects, A("Fm1"), form);
    CosDictPut(properties, A("P1"), group);
    CosDictPut(CosDictGet(page, cosnames::Resources), A("XObject"), xobjects);
    CosDictPut(CosDictGet(page, cosnames::Resources), A("Properties"), properties);
    Run();
    EXPECT_TRUE(Has(cat, "OCProperties")) << "off by the setting";
    prefs.Optimize().removeOCGs = true;
    Run();
    EXPECT_FALSE(Has(cat, "OCProperties"));
    EXPECT_FALSE(Has(annot, "OC"));
    EXPECT_FALSE(Has(form, "OC"));
    // The marks in content keep the property they name.
    EXPECT_EQ(CosDictGet(properties, A("P1")), group);
}

TEST_F(DocumentCleanupTest, ThreadsFormsAndFilesFollowTheirSettings) {
    CosObj page = AddPage();
    CosObj thread = Dict(true), bead = Dict(true);
    CosDictPut(bead, A("T"), thread);
    CosDictPut(thread, A("F"), bead);
    CosDictPut(cat, A("Threads"), Arr({thread}));
    CosDictPut(page, A("B"), Arr({bead}));
    CosObj form = Dict(true);
    CosDictPut(form, A("Fields"), Arr({Dict(true)}));
    CosDictPut(cat, A("AcroForm"), form);
    CosObj files = Dict();
    CosDictPut(files, A("Names"), Arr({Str("a.txt"), Dict(true)}));
    CosDictPut(NamesDict(), A("EmbeddedFiles"), files);
    CosDictPut(cat, A("Collection"), Dict());

    prefs.Optimize().removeThreads = A("None");
    prefs.Optimize().acroformProcessing = A("None");
    Run();
    EXPECT_TRUE(Has(cat, "Threads"));
    EXPECT_TRUE(Has(page, "B"));
    EXPECT_TRUE(Has(cat, "AcroForm"));
    EXPECT_TRUE(Has(CosDictGet(cat, A("Names")), "EmbeddedFiles"));

    prefs.Optimize().removeThreads = A("Remove");
    prefs.Optimize().acroformProcessing = A("Flatten");
    prefs.Optimize().removeEmbeddedFiles = true;
    Run();
    EXPECT_FALSE(Has(cat, "Threads"));
    EXPECT_FALSE(Has(page, "B"));
    EXPECT_FALSE(Has(cat, "AcroForm"));
    EXPECT_FALSE(Has(cat, "Names"));
    EXPECT_FALSE(Has(cat, "Collection"));
    EXPECT_EQ(Stat("EmbeddedFiles_Removed"), 1);
}

TEST_F(DocumentCleanupTest, EmptyStructuresGoButAFormWithXfaStays) {
    CosObj form = Dict(true);
    CosDictPut(form, A("Fields"), CosNewArray(doc, false));
    CosDictPut(cat, A("AcroForm"), form);
    CosObj emptyTree = Dict();
    CosDictPut(emptyTree, A("Names"), CosNewArray(doc, false));
    CosDictPut(NamesDict(), A("JavaScript"), emptyTree);
    Run();
    EXPECT_FALSE(Has(cat, "AcroForm"));
    EXPECT_FALSE(Has(cat, "Names"));

    CosDictPut(form, A("XFA"), Stream("<xdp/>"));
    CosDictPut(cat, A("AcroForm"), form);
    CosObj script = Dict();
    CosDictPut(script, A("Names"), Arr({Str("init"), Dict(true)}));
    CosDictPut(NamesDict(), A("JavaScript"), script);
    Run();
    EXPECT_TRUE(Has(cat, "AcroForm"));
    EXPECT_TRUE(Has(CosDictGet(cat, A("Names")), "JavaScript"));
}

TEST_F(DocumentCleanupTest, MetadataAppearanceNamesAndWebCaptureAreRecorded) {
    prefs.Optimize().removeMetadata = true;
    CosObj page = AddPage();
    CosObj xmp = Stream("<x:xmpmeta/>");
    CosDictPutName(xmp, A("Type"), false, A("Metadata"));
    CosDictPut(cat, A("Metadata"), xmp);
    CosDictPut(page, A("Metadata"), Stream("<x:xmpmeta/>"));
    CosObj ap = Dict();
    CosDictPut(ap, A("Names"), Arr({Str("a"), Stream("0 0 m")}));
    CosDictPut(NamesDict(), A("AP"), ap);
    CosDictPut(NamesDict(), A("URLS"), Dict());
    CosDictPut(cat, A("SpiderInfo"), Dict());
    Run();
    EXPECT_FALSE(Has(cat, "Metadata"));
    EXPECT_FALSE(Has(page, "Metadata"));
    EXPECT_FALSE(Has(cat, "SpiderInfo"));
    EXPECT_FALSE(Has(cat, "Names"));
    const std::string report = ReportText();
    for (const char* line : {"Removed unnecessary Metadata\n", "Removed unnecessary Appearance Names\n",
                             "Removed unnecessary Web Capture Update Information\n"})
        EXPECT_NE(report.find(line), std::string::npos) << line << report;
}

TEST_F(DocumentCleanupTest, SlideShowsAreCompressedAndUnreadableOnesReported) {
    std::string svg = "<svg xmlns='http://www.w3.org/2000/svg'>";
    for (int i = 0; i < 200; ++i) svg += "<rect x='" + std::to_string(i) + "' y='1' width='2' height='2'/>";
    svg += "</svg>";
    CosObj svgStream = Stream(svg);
    auto show = [&](const char* start, CosObj resource) {
        CosObj s = Dict(true);
        CosDictPutName(s, A("Type"), false, A("SlideShow"));
        CosDictPut(s, A("StartResource"), Str(start));
        CosObj res = Dict();
        CosDictPut(res, A("Names"), Arr({Str("show.svg"), resource}));
        CosDictPut(s, A("Resources"), res);
        return s;
    };
    CosObj tree = Dict();
    CosDictPut(tree, A("Names"), Arr({Str("one"), show("show.svg", svgStream), Str("two"),
                                      show("missing.svg", Stream("x"))}));
    CosDictPut(NamesDict(), A("AlternatePresentations"), tree);
    Run();
    EXPECT_EQ(CosDictGetName(svgStream, A("Filter")), A("FlateDecode"));
    EXPECT_LT(CosStreamEncodedLength(svgStream), svg.size());
    EXPECT_TRUE(Statistics(prefs.StatisticsDict()).GetFlag("PSDAlbum_Cleanup"));
    EXPECT_NE(ReportText().find("Cleaned up Photoshop Album Information\n"), std::string::npos);
    EXPECT_NE(cap.All().find("Unabled to access the SVG presentation for the document\n"), std::string::npos);
}

TEST_F(DocumentCleanupTest, NothingToDoGivesNoReportLines) {
    AddPage();
    prefs.Optimize() = OptimizeSettings();  // the defaults
    EXPECT_EQ(Run(), 0) << cap.All();
    EXPECT_EQ(ReportText(), "");
}

}  // namespace
