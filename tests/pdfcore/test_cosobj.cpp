// The object model's rules: lookups, ownership, kinds, handles and copying.
#include <gtest/gtest.h>

#include "pdfcore/CosInternal.h"
#include "pdfcore/CosNames.h"
#include "pdfcore/PDDoc.h"
#include "tests/pdfcore/test_support.h"

namespace {

using CosObjTest = CosDocTest;

const ASAtom kA = ASAtomFromString("A");
const ASAtom kB = ASAtomFromString("B");
const ASAtom kC = ASAtomFromString("C");

TEST_F(CosObjTest, ContainersKeepOrderCloseGapsAndGiveNullForMisses) {
    CosObj d = CosNewDict(doc, false);
    CosDictPut(d, kA, CosNewInteger(doc, false, 1));
    CosDictPut(d, kB, CosNewInteger(doc, false, 2));
    CosDictPut(d, kC, CosNewInteger(doc, false, 3));
    CosDictPut(d, kA, CosNewInteger(doc, false, 10));
    ASSERT_EQ(CosDictCount(d), 3);
    EXPECT_EQ(CosDictKeyAt(d, 0), kA);
    EXPECT_EQ(CosIntegerValue(CosDictGet(d, kA)), 10);
    CosDictRemove(d, kB);
    ASSERT_EQ(CosDictCount(d), 2);
    EXPECT_EQ(CosDictKeyAt(d, 1), kC);
    // Missing keys read as the shared null and removing them does nothing.
    EXPECT_EQ(CosDictGet(d, kB), CosNewNull());
    CosDictRemove(d, kB);
    EXPECT_EQ(CosDictCount(d), 2);
    CosObjDestroy(d);

    // So do array indices out of range.
    CosObj a = CosNewArray(doc, false);
    CosArrayAppend(a, CosNewName(doc, false, kA));
    EXPECT_EQ(CosArrayGet(a, -1), CosNewNull());
    EXPECT_EQ(CosArrayGet(a, 1), CosNewNull());
    EXPECT_EQ(CosNameValue(CosArrayGet(a, 0)), kA);
    CosArrayRemoveAt(a, 0);
    EXPECT_EQ(CosArrayLength(a), 0);
    CosObjDestroy(a);
}

TEST_F(CosObjTest, NumberKindFollowsWholeness) {
    CosObj three = CosNewNumber(doc, false, 3.0);
    CosObj half = CosNewNumber(doc, false, 3.5);
    EXPECT_EQ(CosObjGetType(three), kCosInteger);
    EXPECT_EQ(CosObjGetType(half), kCosFixed);
    EXPECT_EQ(CosIntegerValue(half), 4);  // rounded, halves away from zero
    EXPECT_DOUBLE_EQ(CosFixedValue(three), 3.0);
    CosObjDestroy(three);
    CosObjDestroy(half);
}

TEST_F(CosObjTest, AtomsTrimBlanksButNotShortTexts) {
    EXPECT_EQ(ASAtomFromString("  MediaBox "), cosnames::MediaBox);
    EXPECT_EQ(ASAtomFromString(" MediaBox"), cosnames::MediaBox);
    EXPECT_NE(ASAtomFromString(" "), ASAtomFromString(""));
    EXPECT_STREQ(ASAtomGetString(cosnames::Type), "Type");
}

TEST_F(CosObjTest, TypedGettersRaiseTheirOwnMessages) {
    CosObj n = CosNewInteger(doc, false, 1);
    EXPECT_EQ(ErrorOf(([&] { CosNameValue(n); })), kErrExpectedName);
    EXPECT_EQ(ErrorOf(([&] { CosDictGet(n, kA); })), kErrExpectedDict);
    EXPECT_EQ(ErrorOf(([&] { CosArrayLength(n); })), kErrExpectedArray);
    EXPECT_EQ(ErrorOf(([&] { CosStringValue(n, nullptr); })), kErrExpectedString);
    EXPECT_EQ(ErrorOf(([&] { CosBooleanValue(n); })), kErrExpectedBoolean);
    EXPECT_EQ(ErrGetSystem(ErrorCodeOf([&] { CosNameValue(n); })), ErrSysCos);
    CosObjDestroy(n);
}

TEST_F(CosObjTest, DirectObjectsHaveOneContainerAndOneDocument) {
    CosObj d1 = CosNewDict(doc, false);
    CosObj d2 = CosNewDict(doc, false);
    CosObj v = CosNewInteger(doc, false, 7);
    CosDictPut(d1, kA, v);
    EXPECT_EQ(ErrorOf(([&] { CosDictPut(d2, kA, v); })), kErrAlreadyInContainer);
    CosDoc other = CosDocCreate();
    CosObj foreign = CosNewInteger(other, false, 1);
    EXPECT_EQ(ErrorOf(([&] { CosDictPut(d1, kB, foreign); })), kErrBadOperation);
    CosDictPut(d1, kC, CosNewNull());  // the null object belongs to no document
    CosObjDestroy(foreign);
    CosDocClose(other);
    CosObjDestroy(d1);
    CosObjDestroy(d2);
}

TEST_F(CosObjTest, IndirectValuesAreSharedAndDestroyedOnesReadAsNull) {
    CosObj shared = CosNewDict(doc, true);
    CosObj a = CosNewArray(doc, false);
    CosArrayAppend(a, shared);
    CosArrayAppend(a, shared);
    EXPECT_EQ(CosArrayGet(a, 0), shared);
    EXPECT_EQ(CosArrayGet(a, 1), shared);
    EXPECT_TRUE(CosObjIsIndirect(shared));
    CosObjDestroy(shared);
    EXPECT_EQ(CosArrayGet(a, 0), CosNewNull());
    CosObjDestroy(a);
}

TEST_F(CosObjTest, HandlesAreValidatedWithTheirSystems) {
    ASErrorCode nullDoc = ErrorCodeOf([] { CosDocGetTrailer(nullptr); });
    EXPECT_EQ(ErrGetNumber(nullDoc), kErrBadParm);
    EXPECT_EQ(ErrGetSystem(nullDoc), ErrSysGeneral);
    EXPECT_EQ(ErrGetSeverity(nullDoc), ErrSevNormal);
    CosDoc gone = CosDocCreate();
    CosDocClose(gone);
    EXPECT_EQ(ErrGetSystem(ErrorCodeOf([&] { CosDocGetTrailer(gone); })), ErrSysCos);
    // Making an object checks its document the same way.
    EXPECT_EQ(ErrorCodeOf([] { CosNewDict(nullptr, false); }), nullDoc);
    EXPECT_EQ(ErrGetSystem(ErrorCodeOf([&] { CosNewInteger(gone, false, 1); })), ErrSysCos);
    PDDoc pd = PDDocCreate();
    PDDocClose(pd);
    EXPECT_EQ(ErrGetSystem(ErrorCodeOf([&] { PDDocGetNumPages(pd); })), ErrSysPDDoc);
}

TEST_F(CosObjTest, CopyAcrossDocumentsKeepsSharingCyclesAndLongChains) {
    // Article beads, reply chains and outline items link indirect objects
    // one after another; a chain far longer than any nesting of direct
    // objects still copies whole, and back to its start (a cycle).
    const int kLength = 2000;
    CosObj first = CosNewDict(doc, true);
    CosObj cur = first;
    for (int i = 1; i < kLength; ++i) {
        CosObj next = CosNewDict(doc, true);
        CosDictPutInteger(next, kC, i);
        CosDictPut(cur, kA, next);
        cur = next;
    }
    CosDictPut(cur, kA, first);
    CosDictPut(first, kB, CosDictGet(first, kA));  // shared twice
    CosDoc dest = CosDocCreate();
    CosObj copy = CosObjCopy(first, dest);
    EXPECT_TRUE(CosObjIsIndirect(copy));
    EXPECT_EQ(CosDictGet(copy, kB), CosDictGet(copy, kA));
    CosObj walk = copy;
    for (int i = 1; i < kLength; ++i) {
        walk = CosDictGet(walk, kA);
        ASSERT_EQ(CosObjGetDoc(walk), dest);
        ASSERT_EQ(CosDictGetInt(walk, kC, -1), i);
    }
    EXPECT_EQ(CosDictGet(walk, kA), copy);
    CosDocClose(dest);
}

TEST_F(CosObjTest, GlobalsStreamsThatNameThemselvesDoNotRecurseForever) {
    // JBIG2 globals are decoded while the filter chain is built; a globals
    // stream that names itself, or a ring of two, must end rather than
    // exhaust the stack.
    const ASAtom jbig2 = ASAtomFromString("JBIG2Decode");
    const std::string junk = "not jbig2 data";
    auto make = [&] {
        CosObj dict = CosNewDict(doc, false);
        CosDictPutName(dict, cosnames::Filter, false, jbig2);
        return CosNewStream(doc, dict, {reinterpret_cast<const uint8_t*>(junk.data()), junk.size()});
    };
    auto globals = [&](CosObj stream, CosObj g) {
        CosObj parms = CosNewDict(doc, false);
        CosDictPut(parms, cosnames::JBIG2Globals, g);
        CosDictPut(CosStreamDict(stream), cosnames::DecodeParms, parms);
    };
    CosObj self = make();
    globals(self, self);
    CosObj a = make(), b = make();
    globals(a, b);
    globals(b, a);
    for (CosObj s : {self, a}) {
        bool complete = true;
        try {
            CosStreamDecodedData(s, {}, &complete);
        } catch (const CVellumError&) {
            complete = false;  // refusing the data is as good as a partial result
        }
        EXPECT_FALSE(complete);
    }
}

// A page tree built in memory: two levels, inherited MediaBox and Rotate.
class PageTreeTest : public ::testing::Test {
protected:
    void SetUp() override {
        pd = PDDocCreate();
        CosDoc cos = PDDocGetCosDoc(pd);
        const Maker m{cos};
        CosObj root = CosDictGet(CosDocGetRoot(cos), cosnames::Pages);
        CosDictPut(root, cosnames::MediaBox, m.Parse("[0 0 612 792]"));
        CosObj mid = m.Dict({{"Type", m.Name("Pages")}, {"Parent", root}, {"Rotate", m.Int(90)}}, true);
        CosArrayAppend(CosDictGet(root, cosnames::Kids), mid);
        CosObj kids = CosNewArray(cos, false);
        for (int i = 0; i < 3; ++i)
            CosArrayAppend(kids, m.Dict({{"Type", m.Name("Page")}, {"Parent", mid}, {"Tag", m.Int(i)}}, true));
        Maker::Put(mid, {{"Kids", kids}, {"Count", m.Int(3)}});
        CosDictPutInteger(root, cosnames::Count, 3);
    }
    void TearDown() override { PDDocClose(pd); }
    PDDoc pd = nullptr;
};

TEST_F(PageTreeTest, CountsPagesAndInheritsAttributes) {
    ASSERT_EQ(PDDocGetNumPages(pd), 3);
    CosObj p1 = PDDocGetPageObj(pd, 1);
    EXPECT_EQ(CosDictGetInt(p1, ASAtomFromString("Tag"), -1), 1);
    EXPECT_EQ(CosIntegerValue(PDPageGetInheritedAttr(p1, cosnames::Rotate)), 90);
    EXPECT_EQ(CosArrayLength(PDPageGetInheritedAttr(p1, cosnames::MediaBox)), 4);
    EXPECT_TRUE(CosObjIsNull(PDPageGetInheritedAttr(p1, cosnames::CropBox)));
}

TEST_F(PageTreeTest, InsertingFromAnotherDocumentBringsInheritedValues) {
    PDDoc target = PDDocCreate();
    PDDocInsertPages(target, -1, pd, 0, 3);
    PDDocInsertPages(target, 2, pd, 1, 1);
    ASSERT_EQ(PDDocGetNumPages(target), 4);
    CosObj last = PDDocGetPageObj(target, 3);
    EXPECT_EQ(CosDictGetInt(last, ASAtomFromString("Tag"), -1), 1);
    EXPECT_EQ(CosIntegerValue(CosDictGet(last, cosnames::Rotate)), 90);
    EXPECT_EQ(CosObjGetDoc(last), PDDocGetCosDoc(target));
    CosObj root = CosDictGet(CosDocGetRoot(PDDocGetCosDoc(target)), cosnames::Pages);
    EXPECT_EQ(CosDictGetInt(root, cosnames::Count, 0), 4);
    PDDocDeletePages(target, 0, 1);
    EXPECT_EQ(PDDocGetNumPages(target), 2);
    EXPECT_EQ(CosDictGetInt(root, cosnames::Count, 0), 2);
    PDDocClose(target);
}

TEST_F(PageTreeTest, LoopsAreCutInsteadOfRecursing) {
    const ASInt32 before = PDDocGetNumPages(pd);
    CosObj root = CosDictGet(CosDocGetRoot(PDDocGetCosDoc(pd)), cosnames::Pages);
    CosObj mid = CosArrayGet(CosDictGet(root, cosnames::Kids), 0);
    CosObj kids = CosDictGet(mid, cosnames::Kids);
    const ASInt32 length = CosArrayLength(kids);
    CosArrayAppend(kids, mid);
    PDDocPagesChanged(pd);
    EXPECT_EQ(PDDocGetNumPages(pd), before);
    EXPECT_EQ(CosArrayLength(kids), length);
}

TEST_F(PageTreeTest, PagesStillHeldAtCloseAreReleased) {
    PDPage p = PDDocAcquirePage(pd, 2);
    EXPECT_EQ(PDPageGetNumber(p), 2);
    PDPage q = PDDocAcquirePage(pd, 0);
    PDPageRelease(q);
    // p stays held: closing must release it (ASan reports the leak otherwise).
}

TEST_F(PageTreeTest, MergedLinksByNameGetExplicitDestinations) {
    CosDoc cos = PDDocGetCosDoc(pd);
    const Maker m{cos};
    const ASAtom kDest = ASAtomFromString("Dest"), kA = ASAtomFromString("A"), kD = ASAtomFromString("D");
    // Names/Dests: a tree with one kid holding "sec.1" -> page 3.
    CosObj dest = m.Array({PDDocGetPageObj(pd, 2), m.Name("Fit")});
    CosObj leaf = m.Dict({{"Names", m.Array({m.Str("sec.1"), dest})}}, true);
    CosDictPut(CosDocGetRoot(cos), cosnames::Names, m.Dict({{"Dests", m.Dict({{"Kids", m.Array({leaf})}})}}));
    // Page 1 links to it twice: by /Dest and by a GoTo action.
    CosObj byDest = m.Dict({{"Dest", m.Str("sec.1")}}, true);
    CosObj byAction = m.Dict({{"A", m.Parse("<< /S /GoTo /D (sec.1) >>")}}, true);
    CosDictPut(PDDocGetPageObj(pd, 0), cosnames::Annots, m.Array({byDest, byAction}));

    PDDoc target = PDDocCreate();
    PDDocInsertPages(target, -1, pd, 0, 3);
    CosObj copiedAnnots = CosDictGet(PDDocGetPageObj(target, 0), cosnames::Annots);
    CosObj d1 = CosDictGet(CosArrayGet(copiedAnnots, 0), kDest);
    CosObj d2 = CosDictGet(CosDictGet(CosArrayGet(copiedAnnots, 1), kA), kD);
    ASSERT_EQ(CosObjGetType(d1), kCosArray);
    ASSERT_EQ(CosObjGetType(d2), kCosArray);
    EXPECT_EQ(CosArrayGet(d1, 0), PDDocGetPageObj(target, 2));
    EXPECT_EQ(CosArrayGet(d2, 0), PDDocGetPageObj(target, 2));
    PDDocClose(target);
}

TEST_F(PageTreeTest, PageListsShareCopiedResourcesAndMayRepeatPages) {
    CosDoc cos = PDDocGetCosDoc(pd);
    CosObj font = CosNewDict(cos, true);
    for (int i = 0; i < 3; ++i) {
        CosObj res = CosNewDict(cos, false);
        CosDictPut(res, ASAtomFromString("F1"), font);
        CosDictPut(PDDocGetPageObj(pd, i), cosnames::Resources, res);
    }
    PDDoc target = PDDocCreate();
    PDDocInsertPageList(target, -1, pd, {2, 0, 2});
    ASSERT_EQ(PDDocGetNumPages(target), 3);
    const ASAtom tag = ASAtomFromString("Tag");
    EXPECT_EQ(CosDictGetInt(PDDocGetPageObj(target, 0), tag, -1), 2);
    EXPECT_EQ(CosDictGetInt(PDDocGetPageObj(target, 1), tag, -1), 0);
    EXPECT_EQ(CosDictGetInt(PDDocGetPageObj(target, 2), tag, -1), 2);
    // The repeated page is a page of its own, not the same object twice.
    EXPECT_NE(PDDocGetPageObj(target, 0), PDDocGetPageObj(target, 2));
    auto fontOf = [&](ASInt32 n) {
        return CosDictGet(CosDictGet(PDDocGetPageObj(target, n), cosnames::Resources), ASAtomFromString("F1"));
    };
    // Pages copied together share one copy of their font.
    EXPECT_EQ(fontOf(0), fontOf(1));
    EXPECT_TRUE(CosObjIsIndirect(fontOf(0)));
    PDDocClose(target);
}

}  // namespace
