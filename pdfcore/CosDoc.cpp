// Cos documents: the global list of open documents, the object table with
// on-demand loading, the trailer, and the security-handler registry.
#include <map>
#include <unordered_set>

#include "pdfcore/CosNames.h"
#include "pdfcore/CosObjImpl.h"
#include "base/ASUsage.h"

namespace {

std::unordered_set<CosDocRec*>& OpenDocs() {
    static std::unordered_set<CosDocRec*> docs;
    return docs;
}

std::map<ASAtom, CosSecurityHandler>& Handlers() {
    static std::map<ASAtom, CosSecurityHandler> handlers;
    return handlers;
}

// Object numbers above this are refused: no real file comes near it, and a
// forged number must not make the table allocate gigabytes.
constexpr ASInt32 kMaxObjNum = 8 * 1024 * 1024;

// Loads nested deeper than this are refused (a chain of indirect Lengths or
// object streams pointing at each other).
constexpr ASInt32 kMaxLoadDepth = 64;

}  // namespace

// Implemented by the Standard security handler.  A strong reference: a weak
// one would not pull the handler out of the static library.
void RegisterStandardSecurityHandler();

void CosCoreInit() { RegisterStandardSecurityHandler(); }

void CosDocValidate(CosDoc doc) {
    if (!doc) ASRaise(ErrBuildCode(ErrSevNormal, ErrSysGeneral, kErrBadParm));
    if (!OpenDocs().count(doc)) ASRaise(ErrBuildCode(ErrSevNormal, ErrSysCos, kErrBadParm));
}

CosDoc CosDocCreate() {
    CosDocRec* doc = new CosDocRec;
    OpenDocs().insert(doc);
    ASUsageCreated(kUsageCosDoc);
    doc->xref.resize(1);  // object 0 is always free
    doc->xref[0].gen = 65535;
    doc->trailer = CosNewDict(doc, false);
    doc->trailer->flags |= kRecContained;
    return doc;
}

void CosDocClose(CosDoc doc) {
    CosDocValidate(doc);
    // Drop the loader first: nothing may load while the table is torn down.
    doc->loader.reset();
    doc->xref.ForEach([](size_t, CosXrefEntry& e) {
        if (e.obj) CosFreeRec(e.obj);
        e.obj = nullptr;
    });
    CosFreeRec(doc->trailer);
    CosFreeRec(doc->writeEncryptDict);
    OpenDocs().erase(doc);
    ASUsageFreed(kUsageCosDoc);
    delete doc;
}

CosObj CosDocGetTrailer(CosDoc doc) {
    CosDocValidate(doc);
    return doc->trailer;
}

CosObj CosDocGetRoot(CosDoc doc) { return CosDictGet(CosDocGetTrailer(doc), cosnames::Root); }

CosObj CosDocGetInfo(CosDoc doc) { return CosDictGet(CosDocGetTrailer(doc), cosnames::Info); }

ASInt32 CosNewObjNum(CosDoc doc) {
    // New objects go after the highest number in use; free rows inside the
    // table may still be referenced by stale references, which must keep
    // reading as null.
    if (static_cast<ASInt32>(doc->xref.size()) >= kMaxObjNum) ASRaiseErr(ErrSysCos, kErrTooComplex);
    doc->xref.emplace_back();
    return static_cast<ASInt32>(doc->xref.size() - 1);
}

CosObj CosDocGetObjByID(CosDoc doc, ASInt32 objNum) {
    CosDocValidate(doc);
    CosXrefEntry* found = objNum > 0 ? doc->xref.Find(static_cast<size_t>(objNum)) : nullptr;
    if (!found) return CosNewNull();
    CosXrefEntry& e = *found;
    if (e.obj) return e.obj;
    if (e.kind == CosXrefEntry::kFree || e.kind == CosXrefEntry::kNew || e.loading || e.loadFailed ||
        !doc->loader)
        return CosNewNull();
    if (doc->loadDepth >= kMaxLoadDepth) return CosNewNull();
    e.loading = true;
    ++doc->loadDepth;
    CosObj obj = nullptr;
    try {
        obj = doc->loader->Load(doc, objNum, e);
    } catch (...) {
        --doc->loadDepth;
        // The table may have grown while loading; index again.
        doc->xref[static_cast<size_t>(objNum)].loading = false;
        doc->xref[static_cast<size_t>(objNum)].loadFailed = true;
        throw;
    }
    --doc->loadDepth;
    CosXrefEntry& e2 = doc->xref[static_cast<size_t>(objNum)];
    e2.loading = false;
    if (!obj) {
        e2.loadFailed = true;
        return CosNewNull();
    }
    if (e2.obj) {
        // Installed while loading (by the loader itself, or by a repair that
        // the load set off): keep that one and drop a second reading.
        if (obj != e2.obj && !(obj->flags & (kRecIndirect | kRecContained | kRecStatic))) CosFreeRec(obj);
        return e2.obj;
    }
    CosDocInstallObject(doc, objNum, e2.gen, obj);
    return obj;
}

void CosDocInstallObject(CosDoc doc, ASInt32 objNum, ASUns16 gen, CosObj obj) {
    CosDocValidate(doc);
    if (objNum <= 0 || objNum >= kMaxObjNum || !obj || (obj->flags & (kRecStatic | kRecContained)))
        ASRaiseErr(ErrSysGeneral, kErrBadParm);
    if (obj->flags & kRecIndirect) {
        // A stream is made indirect under a fresh number; move it to its own.
        CosXrefEntry& old = doc->xref[static_cast<size_t>(obj->objNum)];
        if (old.obj == obj) {
            old.obj = nullptr;
            old.kind = CosXrefEntry::kFree;
        }
        // Drop the spare row when it is the last one.
        if (static_cast<size_t>(obj->objNum) + 1 == doc->xref.size() && obj->objNum != objNum)
            doc->xref.pop_back();
    }
    if (static_cast<size_t>(objNum) >= doc->xref.size()) doc->xref.resize(static_cast<size_t>(objNum) + 1);
    CosXrefEntry& e = doc->xref[static_cast<size_t>(objNum)];
    if (e.obj && e.obj != obj) CosFreeRec(e.obj);
    e.obj = obj;
    e.gen = gen;
    if (e.kind == CosXrefEntry::kFree) e.kind = CosXrefEntry::kNew;
    obj->objNum = objNum;
    obj->gen = gen;
    obj->flags |= kRecIndirect;
    obj->flags &= static_cast<uint8_t>(~kRecChanged);
    if (obj->type == kCosStream) CosStreamSetCryptID(obj, objNum, gen);
}

ASInt32 CosDocGetObjTableSize(CosDoc doc) {
    CosDocValidate(doc);
    return static_cast<ASInt32>(doc->xref.size());
}

ASInt32 CosDocNextObjID(CosDoc doc, ASInt32 id) {
    CosDocValidate(doc);
    return static_cast<ASInt32>(doc->xref.NextMade(static_cast<size_t>(std::max(id, 0)) + 1));
}

ASInt32 CosDocLoadAllObjects(CosDoc doc) {
    CosDocValidate(doc);
    ASInt32 loaded = 0;
    for (size_t i = doc->xref.NextMade(1); i < doc->xref.size(); i = doc->xref.NextMade(i + 1)) {
        CosObj o = CosDocGetObjByID(doc, static_cast<ASInt32>(i));
        const CosXrefEntry* e = doc->xref.Find(i);
        if (!CosObjIsNull(o) || (e && e->obj)) ++loaded;
    }
    return loaded;
}

CosObjLocation CosDocGetObjLocation(CosDoc doc, ASInt32 objNum) {
    CosDocValidate(doc);
    CosObjLocation loc;
    const CosXrefEntry* found = objNum > 0 ? doc->xref.Find(static_cast<size_t>(objNum)) : nullptr;
    if (!found) return loc;
    const CosXrefEntry& e = *found;
    switch (e.kind) {
        case CosXrefEntry::kInFile: loc.where = CosObjLocation::kInFile; break;
        case CosXrefEntry::kInObjStm: loc.where = CosObjLocation::kInObjStm; break;
        case CosXrefEntry::kNew: loc.where = CosObjLocation::kNew; break;
        default: return loc;
    }
    loc.offset = e.offset;
    loc.index = e.index;
    return loc;
}

void CosDocSetPrecision(CosDoc doc, ASInt16 precision) {
    CosDocValidate(doc);
    doc->precision = precision < 0 ? 0 : precision;
}

ASInt16 CosDocGetPrecision(CosDoc doc) {
    CosDocValidate(doc);
    return doc->precision;
}

const CosDocFileInfo& CosDocGetFileInfo(CosDoc doc) {
    CosDocValidate(doc);
    return doc->info;
}

// ---------------------------------------------------------------- security

void CosRegisterSecurityHandler(ASAtom filterName, const CosSecurityHandler& handler) {
    Handlers()[filterName] = handler;
}

const CosSecurityHandler* CosFindSecurityHandler(ASAtom filterName) {
    // Tools that only call VellumInit still find the built-in handler.
    if (Handlers().empty()) CosCoreInit();
    auto it = Handlers().find(filterName);
    return it == Handlers().end() ? nullptr : &it->second;
}

CosCryptFilter* CosDocGetReadCrypt(CosDoc doc) {
    CosDocValidate(doc);
    return doc->readCrypt.get();
}

void CosDocSetReadCrypt(CosDoc doc, std::unique_ptr<CosCryptFilter> crypt) {
    CosDocValidate(doc);
    doc->readCrypt = std::move(crypt);
}

void CosDocSetWriteCrypt(CosDoc doc, std::unique_ptr<CosCryptFilter> crypt, CosObj encryptDict) {
    CosDocValidate(doc);
    doc->writeCrypt = std::move(crypt);
    CosFreeRec(doc->writeEncryptDict);
    doc->writeEncryptDict = nullptr;
    if (encryptDict && !CosObjIsNull(encryptDict)) {
        CosCheckType(encryptDict, kCosDict);
        if (encryptDict->doc != doc || (encryptDict->flags & (kRecIndirect | kRecContained)))
            ASRaiseErr(ErrSysCos, kErrExpectedDirect);
        encryptDict->flags |= kRecContained;
        doc->writeEncryptDict = encryptDict;
    }
}

CosCryptFilter* CosDocGetWriteCrypt(CosDoc doc) {
    CosDocValidate(doc);
    return doc->writeCrypt.get();
}

CosObj CosDocGetWriteEncryptDict(CosDoc doc) {
    CosDocValidate(doc);
    return doc->writeEncryptDict ? doc->writeEncryptDict : CosNewNull();
}

// ---------------------------------------------------------------- internals

void CosObjTable::resize(size_t n) {
    if (n < m_size && (n & (kBlockSize - 1)) != 0) {
        // The block that stays forgets the dropped entries, so that growing
        // again gives free ones.
        std::unique_ptr<CosXrefEntry[]>& b = m_blocks[n >> kBlockBits];
        if (b)
            for (size_t i = n & (kBlockSize - 1); i < kBlockSize; ++i) b[i] = CosXrefEntry();
    }
    m_blocks.resize((n + kBlockSize - 1) >> kBlockBits);
    m_size = n;
}

CosObjTable& CosDocXref(CosDoc doc) {
    CosDocValidate(doc);
    return doc->xref;
}

CosDocFileInfo& CosDocMutableFileInfo(CosDoc doc) {
    CosDocValidate(doc);
    return doc->info;
}

void CosDocSetTrailer(CosDoc doc, CosObj trailerDict) {
    CosDocValidate(doc);
    CosCheckType(trailerDict, kCosDict);
    if (trailerDict->doc != doc || (trailerDict->flags & (kRecIndirect | kRecContained)))
        ASRaiseErr(ErrSysCos, kErrExpectedDirect);
    CosFreeRec(doc->trailer);
    trailerDict->flags |= kRecContained;
    doc->trailer = trailerDict;
}

void CosDocSetSource(CosDoc doc, std::unique_ptr<CosFileSource> source) {
    CosDocValidate(doc);
    doc->source = std::move(source);
}

CosFileSource* CosDocGetSource(CosDoc doc) {
    CosDocValidate(doc);
    return doc->source.get();
}

void CosDocSetLoader(CosDoc doc, std::unique_ptr<CosObjectLoader> loader) {
    CosDocValidate(doc);
    doc->loader = std::move(loader);
}
