// PDDoc: a document with its page tree, over a Cos document.
#include "pdfcore/PDDoc.h"

#include <algorithm>
#include <unordered_set>
#include <vector>

#include "pdfcore/CosInternal.h"
#include "pdfcore/CosNames.h"
#include "pdfcore/PDPageTree.h"
#include "base/ASMem.h"
#include "base/ASUsage.h"
#include "pdfcore/security/StandardSecurity.h"

namespace {

std::unordered_set<PDDocRec*>& OpenPDDocs() {
    static std::unordered_set<PDDocRec*> docs;
    return docs;
}

}  // namespace

struct PDPageRec {
    PDDocRec* doc;
    ASInt32 number;
    CosObj obj;
};

struct PDDocRec {
    CosDoc cos = nullptr;
    ASInt32 numPages = -1;        // -1: not yet known
    std::vector<CosObj> pages;    // page dictionaries in order, valid when numPages >= 0
    std::vector<PDPageRec*> held; // pages acquired and not yet released
};

void PDDocValidate(PDDoc doc) {
    if (!doc) ASRaise(ErrBuildCode(ErrSevNormal, ErrSysGeneral, kErrBadParm));
    if (!OpenPDDocs().count(doc)) ASRaise(ErrBuildCode(ErrSevNormal, ErrSysPDDoc, kErrBadParm));
}

PDDoc PDDocFromCosDoc(CosDoc cos) {
    CosDocValidate(cos);
    PDDocRec* d = new PDDocRec;
    d->cos = cos;
    OpenPDDocs().insert(d);
    ASUsageCreated(kUsagePDDoc);
    return d;
}

PDDoc PDDocOpen(const std::string& path, const std::string& password) {
    CosOpenParams params;
    params.path = path;
    params.password = password;
    CosDoc cos = CosDocOpen(params);
    CosObj root = CosDocGetRoot(cos);
    if (CosObjGetType(root) != kCosDict) {
        CosDocClose(cos);
        ASRaiseErr(ErrSysPDDoc, kErrBadRoot);
    }
    return PDDocFromCosDoc(cos);
}

PDDoc PDDocCreate() {
    CosDoc cos = CosDocCreate();
    CosObj pages = CosNewDict(cos, true, 3);
    CosDictPutName(pages, cosnames::Type, false, cosnames::Pages);
    CosDictPut(pages, cosnames::Kids, CosNewArray(cos, false));
    CosDictPutInteger(pages, cosnames::Count, 0);
    CosObj catalog = CosNewDict(cos, true, 2);
    CosDictPutName(catalog, cosnames::Type, false, cosnames::Catalog);
    CosDictPut(catalog, cosnames::Pages, pages);
    CosDictPut(CosDocGetTrailer(cos), cosnames::Root, catalog);
    return PDDocFromCosDoc(cos);
}

void PDDocClose(PDDoc doc) {
    PDDocValidate(doc);
    for (PDPageRec* p : doc->held) {
        VellumStatusPrintf(
            "While closing PDDoc, PDPage [page number %ld (zero-based)] was not fully released.  "
            "Vellum has corrected the problem, but please review your code for missing "
            "PDPageRelease calls\n",
            static_cast<long>(p->number));
        ASUsageFreed(kUsagePDPage);
        delete p;
    }
    doc->held.clear();
    CosDoc cos = doc->cos;
    OpenPDDocs().erase(doc);
    ASUsageFreed(kUsagePDDoc);
    delete doc;
    CosDocClose(cos);
}

CosDoc PDDocGetCosDoc(PDDoc doc) {
    PDDocValidate(doc);
    return doc->cos;
}

static void EnsurePages(PDDoc doc) {
    if (doc->numPages >= 0) return;
    doc->pages = PDCollectPages(doc->cos);
    doc->numPages = static_cast<ASInt32>(doc->pages.size());
}

ASInt32 PDDocGetNumPages(PDDoc doc) {
    PDDocValidate(doc);
    EnsurePages(doc);
    return doc->numPages;
}

void PDDocPagesChanged(PDDoc doc) {
    PDDocValidate(doc);
    doc->numPages = -1;
    doc->pages.clear();
}

CosObj PDDocGetPageObj(PDDoc doc, ASInt32 pageNum) {
    PDDocValidate(doc);
    EnsurePages(doc);
    if (pageNum < 0 || pageNum >= doc->numPages) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    return doc->pages[static_cast<size_t>(pageNum)];
}

PDPage PDDocAcquirePage(PDDoc doc, ASInt32 pageNum) {
    CosObj obj = PDDocGetPageObj(doc, pageNum);
    PDPageRec* p = new PDPageRec{doc, pageNum, obj};
    doc->held.push_back(p);
    ASUsageCreated(kUsagePDPage);
    return p;
}

void PDPageRelease(PDPage page) {
    if (!page) return;
    PDDocValidate(page->doc);
    auto& held = page->doc->held;
    auto it = std::find(held.begin(), held.end(), page);
    if (it == held.end()) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    held.erase(it);
    ASUsageFreed(kUsagePDPage);
    delete page;
}

CosObj PDPageGetCosObj(PDPage page) {
    if (!page) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    return page->obj;
}

ASInt32 PDPageGetNumber(PDPage page) {
    if (!page) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    return page->number;
}

PDDoc PDPageGetDoc(PDPage page) {
    if (!page) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    return page->doc;
}

void PDDocInsertPages(PDDoc target, ASInt32 afterPage, PDDoc source, ASInt32 firstPage, ASInt32 count) {
    PDDocValidate(source);
    EnsurePages(source);
    if (firstPage < 0 || count < 0 || firstPage > source->numPages - count)
        ASRaiseErr(ErrSysGeneral, kErrBadParm);
    std::vector<ASInt32> pages(static_cast<size_t>(count));
    for (ASInt32 i = 0; i < count; ++i) pages[static_cast<size_t>(i)] = firstPage + i;
    PDDocInsertPageList(target, afterPage, source, pages);
}

void PDDocInsertPageList(PDDoc target, ASInt32 afterPage, PDDoc source,
                         const std::vector<ASInt32>& pageNums) {
    PDDocValidate(target);
    PDDocValidate(source);
    EnsurePages(source);
    EnsurePages(target);
    if (afterPage < -1 || afterPage >= target->numPages) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    // A page may be asked for more than once; each batch holds a page once,
    // since one copy cannot stand in the tree twice.
    std::vector<std::vector<CosObj>> batches(1);
    std::unordered_set<ASInt32> inBatch;
    for (ASInt32 n : pageNums) {
        if (n < 0 || n >= source->numPages) ASRaiseErr(ErrSysGeneral, kErrBadParm);
        if (!inBatch.insert(n).second) {
            batches.emplace_back();
            inBatch = {n};
        }
        batches.back().push_back(source->pages[static_cast<size_t>(n)]);
    }
    ASInt32 after = afterPage;
    for (const auto& batch : batches) {
        PDInsertPageCopies(target->cos, after, batch);
        after += static_cast<ASInt32>(batch.size());
    }
    PDDocPagesChanged(target);
    // A merged document counts as having used object streams when any of
    // its sources did, so the compact form is kept for it.
    if (!pageNums.empty() && CosDocGetFileInfo(source->cos).objectStreams)
        CosDocMutableFileInfo(target->cos).objectStreams = true;
}

void PDDocDeletePages(PDDoc doc, ASInt32 firstPage, ASInt32 lastPage) {
    PDDocValidate(doc);
    EnsurePages(doc);
    if (firstPage < 0 || lastPage < firstPage || lastPage >= doc->numPages)
        ASRaiseErr(ErrSysGeneral, kErrBadParm);
    std::vector<CosObj> victims(doc->pages.begin() + firstPage, doc->pages.begin() + lastPage + 1);
    for (CosObj page : victims) PDRemovePageFromTree(page);
    PDDocPagesChanged(doc);
}

bool PDDocPermRequest(PDDoc doc, ASInt32 mask) {
    PDDocValidate(doc);
    return StdSecDocPermits(doc->cos, mask);
}

int64_t PDDocSave(PDDoc doc, const std::string& path, ASUns32 flags, ASInt16 major, ASInt16 minor,
                  int64_t commitOnlyIfAtMost) {
    PDDocValidate(doc);
    CosSaveParams params;
    params.flags = flags;
    params.path = path;
    params.majorVersion = major;
    params.minorVersion = minor;
    params.commitOnlyIfAtMost = commitOnlyIfAtMost;
    return CosDocSave(doc->cos, params);
}
