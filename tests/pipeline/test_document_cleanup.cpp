// The document clean-up steps on small documents built here: what each step
// removes, what it keeps, its counters and report lines, and how damaged
// catalogs and trees are skipped.
#include "pipeline/DocumentCleanup.h"
#include "pipeline/DocumentCleanupTrees.h"
#include "pipeline_fixture.h"

namespace {

using namespace pipeline;
using namespace pipetest;

class DocumentCleanupTest : public DocTest {
protected:
    void SetUp() override {
        DocTest::SetUp();
        // Everything off that the defaults switch on, so each test turns
        // on what it looks at.
        OptimizeSettings& o = prefs.Optimize();
        o.removeEditData = o.removeMetadata = o.removeJobTicket = o.removeTags = false;
        o.removeEmbeddedFiles = o.removeOCGs = false;
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
    CosObj NamesDict() { return Sub(cat, "Names"); }
    int Run() {
        auto ctx = Ctx(-1);
        return CleanUpDocument(ctx);
    }
};

TEST_F(DocumentCleanupTest, PrivateCatalogDataIsAlwaysRemovedAndCountedPerKey) {
    for (const char* k : {"QITE_cache_2", "CAPT_Info", "FICL:Enfocus"}) CosDictPut(cat, A(k), Dict());
    Set(cat, {{"CSML:PProt", CosNewNull()}, {"JT", Dict()}});  // a null entry is not present
    Run();
    EXPECT_FALSE(Has(cat, "QITE_cache_2"));
    EXPECT_TRUE(Has(cat, "JT"));
    EXPECT_EQ(Stat("EditData_Removed"), 3);

    prefs.Optimize().removeJobTicket = true;
    Run();
    for (const char* k : {"QITE_cache_2", "CAPT_Info", "FICL:Enfocus", "JT"}) EXPECT_FALSE(Has(cat, k)) << k;
    EXPECT_EQ(Stat("EditData_Removed"), 3);  // nothing left to count a second time
    EXPECT_EQ(Stat("JobTicket_Removed"), 1);
    EXPECT_TRUE(Reported("Removed 3 unnecessary Edit Data\n") && Reported("Removed 1 unnecessary Job Tickets\n"));
}

TEST_F(DocumentCleanupTest, OutlineGoesByItsCountOrByTheSetting) {
    CosObj page = AddPage();
    auto outline = [&](CosObj count) {
        CosObj root = Dict(true);
        CosObj item = Dict({{"Title", Str("Closed")}, {"Dest", Fit(page)}, {"Parent", root}}, true);
        Set(root, {{"First", item}, {"Last", item}});
        if (count) CosDictPut(root, A("Count"), count);
        CosDictPut(cat, A("Outlines"), root);
    };
    outline(Int(0));  // all items closed: counts as empty
    Run();
    EXPECT_FALSE(Has(cat, "Outlines"));
    EXPECT_TRUE(Flag("EmptyOutline_Removed"));
    EXPECT_TRUE(Reported("Removed unnecessary Empty Bookmarks\n"));

    Stats().Reset();
    outline(nullptr);  // no Count at all
    Run();
    EXPECT_FALSE(Has(cat, "Outlines"));

    Stats().Reset();
    outline(Int(1));
    Run();
    EXPECT_TRUE(Has(cat, "Outlines"));
    EXPECT_FALSE(Flag("EmptyOutline_Removed"));

    prefs.Optimize().removeOutlines = true;
    Run();
    EXPECT_FALSE(Has(cat, "Outlines"));
    EXPECT_TRUE(Flag("OutlineTree_Removed"));
    EXPECT_FALSE(Flag("EmptyOutline_Removed"));
}

TEST_F(DocumentCleanupTest, DamagedCatalogEntriesAreSkippedWithAWarning) {
    AddPage();
    Set(cat, {{"Outlines", Int(7)}, {"PageLabels", Str("i")}, {"Names", Arr({Str("x")})}});
    prefs.Optimize().removePageLabels = A("Remove");
    prefs.Optimize().removeNamedDests = A("Remove");
    prefs.Optimize().removeEmbeddedFiles = true;
    EXPECT_EQ(Run(), 0);
    EXPECT_FALSE(Flag("PageLabels_Removed") || Flag("EmptyOutline_Removed"));
    for (const char* key : {"Outlines", "PageLabels", "Names"}) {
        EXPECT_TRUE(Has(cat, key)) << key;
        EXPECT_TRUE(cap.Logged(std::string("The catalog's ") + key + " is not a dictionary")) << key;
    }
}

TEST_F(DocumentCleanupTest, TreesWithALoopAreReportedAndLeftAlone) {
    CosObj a = Dict(true), b = Dict({{"Next", a}}, true);  // back to the first item
    CosDictPut(a, A("Next"), b);
    CosDictPut(cat, A("Outlines"), Dict({{"First", a}, {"Count", Int(2)}}, true));
    EXPECT_EQ(Run(), 0);
    EXPECT_TRUE(Has(cat, "Outlines"));
    EXPECT_TRUE(cap.Logged("Skipping part of the outline tree: an item is reached twice"));

    // A named destination tree with a loop is kept, but its names still resolve.
    prefs.Optimize().removeNamedDests = A("Remove");
    CosObj p1 = AddPage();
    CosObj root = Dict(true), leaf = Dict({{"Names", Arr({Str("here"), Fit(p1)})}, {"Kids", Arr({root})}}, true);
    CosDictPut(root, A("Kids"), Arr({leaf}));  // the leaf leads back up to the root
    CosDictPut(NamesDict(), A("Dests"), root);
    CosObj link = Dict({{"Dest", Str("here")}}, true);
    CosDictPut(p1, A("Annots"), Arr({link}));
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(CosObjGetType(CosDictGet(link, A("Dest"))), kCosArray);
    EXPECT_TRUE(Has(CosDictGet(cat, A("Names")), "Dests"));
    EXPECT_TRUE(cap.Logged("Skipping named destinations: the Dests name tree: a node is reached twice"));
}

TEST_F(DocumentCleanupTest, TaggingGoesWithEveryReferenceIntoTheStructure) {
    prefs.Optimize().removeTags = true;
    CosObj page = AddPage();
    Set(cat, {{"StructTreeRoot", Dict(true)}, {"MarkInfo", Dict({{"Marked", Bool(true)}})}});
    CosObj annot = Dict({{"StructParent", Int(1)}}, true);
    Set(page, {{"StructParents", Int(0)}, {"Annots", Arr({annot})}});
    CosObj form = Put(page, "XObject", "Fm1", Set(Form("0 0 m"), {{"StructParents", Int(2)}}));
    Run();
    EXPECT_FALSE(Has(cat, "StructTreeRoot") || Has(cat, "MarkInfo"));
    EXPECT_FALSE(Has(page, "StructParents") || Has(annot, "StructParent") || Has(form, "StructParents"));
    EXPECT_TRUE(Reported("Removed unnecessary Tagging\n"));
}

TEST_F(DocumentCleanupTest, RemovedNamedDestinationsLeaveExplicitOnesBehind) {
    prefs.Optimize().removeNamedDests = A("Remove");
    CosObj p1 = AddPage(), p2 = AddPage();
    // The old-style dictionary, keyed by names.
    CosDictPut(cat, A("Dests"), Dict({{"Chap1", Fit(p1)}}, true));
    // The name tree, as a Kids tree of two leaves; the second value is a
    // dictionary holding D.
    CosObj leaf1 = Dict({{"Names", Arr({Str("a-first"), Fit(p1)})}}, true);
    CosObj wrapped = Dict({{"D", Arr({p2, Name("XYZ"), Int(0), Int(700), CosNewNull()})}});
    CosObj leaf2 = Dict({{"Names", Arr({Str("sec2"), wrapped})}}, true);
    CosDictPut(NamesDict(), A("Dests"), Dict({{"Kids", Arr({leaf1, leaf2})}}, true));
    CosObj item = Dict({{"Dest", Name("Chap1")}}, true);
    CosDictPut(cat, A("Outlines"), Dict({{"First", item}, {"Count", Int(1)}}, true));

    auto action = [&](const char* s, CosObj d) { return Dict({{"S", Name(s)}, {"D", d}}); };
    CosObj link = Dict({{"A", action("GoTo", Str("sec2"))}}, true);
    CosObj remote = Dict({{"A", action("GoToR", Str("sec2"))}}, true);
    CosObj unknown = Dict({{"Dest", Str("nowhere")}}, true);
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

    t = ReadTree(Dict({{"Names", Arr({Str("a"), Int(1), Int(5), Int(2), Str("c")})}}, true), TreeKind::Names);
    ASSERT_EQ(t.entries.size(), 1u);  // the integer key is skipped, "c" has no value
    EXPECT_EQ(CosStringBytes(t.entries[0].key), "a");
    EXPECT_FALSE(t.problem.empty());
}

TEST_F(DocumentCleanupTest, PageLabelsArePlainOnlyWhenTheyReadAsPageNumbers) {
    auto labels = [&](std::initializer_list<std::pair<int, CosObj>> ranges) {
        CosObj nums = Arr({});
        for (const auto& [page, range] : ranges) {
            CosArrayAppend(nums, Int(page));
            CosArrayAppend(nums, range);
        }
        return Dict({{"Nums", nums}}, true);  // owned by the document, as nothing holds it
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
    EXPECT_TRUE(PageLabelsArePlain(Dict({{"Kids", Arr({labels({{0, Range("D")}})})}}, true), 3));
    CosObj loopRoot = Dict(true), loopLeaf = Dict({{"Nums", Arr({Int(0), Range("D")})}, {"Kids", Arr({loopRoot})}}, true);
    CosDictPut(loopRoot, A("Kids"), Arr({loopLeaf}));
    std::string problem;
    EXPECT_FALSE(PageLabelsArePlain(loopRoot, 3, &problem));
    EXPECT_NE(problem.find("loop"), std::string::npos);
}

TEST_F(DocumentCleanupTest, PageLabelStepFollowsTheSetting) {
    for (int i = 0; i < 3; ++i) AddPage();
    auto put = [&](const char* style) { CosDictPut(cat, A("PageLabels"), Dict({{"Nums", Arr({Int(0), Range(style)})}})); };
    put("r");
    prefs.Optimize().removePageLabels = A("None");
    Run();
    EXPECT_TRUE(Has(cat, "PageLabels"));
    prefs.Optimize().removePageLabels = A("RemoveUnused");
    Run();
    EXPECT_TRUE(Has(cat, "PageLabels")) << "roman numerals say something";
    EXPECT_FALSE(Flag("PageLabels_Removed"));
    put("D");
    Run();
    EXPECT_FALSE(Has(cat, "PageLabels"));
    EXPECT_TRUE(Reported("Removed unnecessary Page Labels\n"));
    put("r");
    prefs.Optimize().removePageLabels = A("Remove");
    Run();
    EXPECT_FALSE(Has(cat, "PageLabels"));
}

TEST_F(DocumentCleanupTest, OptionalContentGoesWithTheEntriesNamingItsGroups) {
    CosObj page = AddPage();
    CosObj group = Dict({{"Type", Name("OCG")}}, true);
    CosDictPut(cat, A("OCProperties"), Dict({{"OCGs", Arr({group})}}));
    CosObj annot = Dict({{"OC", group}}, true);
    CosDictPut(page, A("Annots"), Arr({annot}));
    CosObj form = Put(page, "XObject", "Fm1", Set(Form("/OC /P1 BDC 0 0 1 1 re f EMC"), {{"OC", group}}));
    Put(page, "Properties", "P1", group);
    Run();
    EXPECT_TRUE(Has(cat, "OCProperties")) << "off by the setting";
    prefs.Optimize().removeOCGs = true;
    Run();
    EXPECT_FALSE(Has(cat, "OCProperties") || Has(annot, "OC") || Has(form, "OC"));
    // The marks in content keep the property they name.
    EXPECT_EQ(CosDictGet(Res(page, "Properties"), A("P1")), group);
}

TEST_F(DocumentCleanupTest, ThreadsFormsAndFilesFollowTheirSettings) {
    CosObj page = AddPage();
    CosObj thread = Dict(true), bead = Dict({{"T", thread}}, true);
    CosDictPut(thread, A("F"), bead);
    CosDictPut(page, A("B"), Arr({bead}));
    Set(cat, {{"Threads", Arr({thread})}, {"AcroForm", Dict({{"Fields", Arr({Dict(true)})}}, true)},
              {"Collection", Dict()}});
    CosDictPut(NamesDict(), A("EmbeddedFiles"), Dict({{"Names", Arr({Str("a.txt"), Dict(true)})}}));

    prefs.Optimize().removeThreads = A("None");
    prefs.Optimize().acroformProcessing = A("None");
    Run();
    EXPECT_TRUE(Has(cat, "Threads") && Has(page, "B") && Has(cat, "AcroForm"));
    EXPECT_TRUE(Has(CosDictGet(cat, A("Names")), "EmbeddedFiles"));

    prefs.Optimize().removeThreads = A("Remove");
    prefs.Optimize().acroformProcessing = A("Flatten");
    prefs.Optimize().removeEmbeddedFiles = true;
    Run();
    EXPECT_FALSE(Has(page, "B"));
    for (const char* key : {"Threads", "AcroForm", "Names", "Collection"}) EXPECT_FALSE(Has(cat, key)) << key;
    EXPECT_EQ(Stat("EmbeddedFiles_Removed"), 1);
}

TEST_F(DocumentCleanupTest, ActionsThatOpenEmbeddedFilesGoWithTheFiles) {
    // A link whose only action goes into an embedded file goes whole; one
    // with a destination stays without the action; chained, outline, open
    // and additional actions lose the embedded-file ones and keep the rest.
    CosObj page = AddPage();
    auto gotoE = [&] { return Dict({{"S", Name("GoToE")}, {"T", Dict()}}); };
    auto launchEmbedded = [&] { return Dict({{"S", Name("Launch")}, {"F", Dict({{"EF", Dict()}})}}); };
    auto uri = [&] { return Dict({{"S", Name("URI")}, {"URI", Str("https://example.org")}}); };
    CosObj onlyFile = Dict({{"Subtype", Name("Link")}, {"A", gotoE()}});
    CosObj withDest = Dict({{"Subtype", Name("Link")}, {"A", launchEmbedded()}, {"Dest", Fit(page)}});
    CosObj chained = Dict({{"Subtype", Name("Link")}, {"A", Dict({{"S", Name("URI")}, {"Next", Arr({gotoE(), uri()})}})}});
    CosObj widget = Dict({{"Subtype", Name("Widget")}, {"AA", Dict({{"U", gotoE()}, {"D", uri()}})}});
    CosObj launchFile = Dict({{"S", Name("Launch")}, {"F", Str("other.pdf")}});
    CosDictPut(page, A("Annots"), Arr({onlyFile, withDest, chained, widget}));
    CosObj item = Dict({{"A", gotoE()}, {"Title", Str("x")}}, true);
    CosDictPut(cat, A("Outlines"), Dict({{"First", item}, {"Last", item}, {"Count", Int(1)}}, true));
    CosDictPut(cat, A("OpenAction"), launchFile);

    prefs.Optimize().removeEmbeddedFiles = true;
    Run();
    CosObj annots = CosDictGet(page, A("Annots"));
    ASSERT_EQ(CosArrayLength(annots), 3);
    EXPECT_EQ(CosArrayGet(annots, 0), withDest);
    EXPECT_FALSE(Has(withDest, "A"));
    EXPECT_EQ(CosArrayLength(CosDictGet(CosDictGet(chained, A("A")), A("Next"))), 1);
    EXPECT_FALSE(Has(CosDictGet(widget, A("AA")), "U"));
    EXPECT_TRUE(Has(CosDictGet(widget, A("AA")), "D"));
    EXPECT_FALSE(Has(item, "A"));
    EXPECT_TRUE(Has(cat, "OpenAction"));  // a launch of a file outside the document stays
    EXPECT_EQ(Stat("EmbeddedFiles_Removed"), 5);
}

TEST_F(DocumentCleanupTest, EmptyStructuresGoButAFormWithXfaStays) {
    CosObj form = Dict({{"Fields", Arr({})}}, true);
    CosDictPut(cat, A("AcroForm"), form);
    CosDictPut(NamesDict(), A("JavaScript"), Dict({{"Names", Arr({})}}));
    Run();
    EXPECT_FALSE(Has(cat, "AcroForm") || Has(cat, "Names"));

    CosDictPut(form, A("XFA"), Stream("<xdp/>"));
    CosDictPut(cat, A("AcroForm"), form);
    CosDictPut(NamesDict(), A("JavaScript"), Dict({{"Names", Arr({Str("init"), Dict(true)})}}));
    Run();
    EXPECT_TRUE(Has(cat, "AcroForm"));
    EXPECT_TRUE(Has(CosDictGet(cat, A("Names")), "JavaScript"));
}

TEST_F(DocumentCleanupTest, MetadataAppearanceNamesAndWebCaptureAreRecorded) {
    prefs.Optimize().removeMetadata = true;
    CosObj page = AddPage();
    Set(cat, {{"Metadata", Stream("<x:xmpmeta/>", Dict({{"Type", Name("Metadata")}}))}, {"SpiderInfo", Dict()}});
    CosDictPut(page, A("Metadata"), Stream("<x:xmpmeta/>"));
    Set(NamesDict(), {{"AP", Dict({{"Names", Arr({Str("a"), Stream("0 0 m")})}})}, {"URLS", Dict()}});
    Run();
    EXPECT_FALSE(Has(page, "Metadata"));
    for (const char* key : {"Metadata", "SpiderInfo", "Names"}) EXPECT_FALSE(Has(cat, key)) << key;
    const std::string report = Report();
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
        return Dict({{"Type", Name("SlideShow")}, {"StartResource", Str(start)},
                     {"Resources", Dict({{"Names", Arr({Str("show.svg"), resource})}})}}, true);
    };
    CosDictPut(NamesDict(), A("AlternatePresentations"),
               Dict({{"Names", Arr({Str("one"), show("show.svg", svgStream), Str("two"),
                                    show("missing.svg", Stream("x"))})}}));
    Run();
    EXPECT_EQ(CosDictGetName(svgStream, A("Filter")), A("FlateDecode"));
    EXPECT_LT(CosStreamEncodedLength(svgStream), svg.size());
    EXPECT_TRUE(Flag("PSDAlbum_Cleanup"));
    EXPECT_TRUE(Reported("Cleaned up Photoshop Album Information\n"));
    EXPECT_TRUE(cap.Logged("Unabled to access the SVG presentation for the document\n"));
}

TEST_F(DocumentCleanupTest, NothingToDoGivesNoReportLines) {
    AddPage();
    prefs.Optimize() = OptimizeSettings();  // the defaults
    EXPECT_EQ(Run(), 0) << cap.All();
    EXPECT_EQ(Report(), "");
}

}  // namespace
