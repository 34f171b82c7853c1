// Opening files: the file source, the object loader, the open sequence
// (header, end marker, startxref, the cross-reference chain, repair,
// encryption) and parsing single objects from memory.
#include <cstdio>
#include <cstring>

#include "pdfcore/CosNames.h"
#include "pdfcore/CosObjStm.h"
#include "pdfcore/CosParser.h"
#include "pdfcore/CosRepair.h"
#include "pdfcore/CosWarn.h"
#include "pdfcore/CosXref.h"

namespace {

class MemorySource : public CosFileSource {
public:
    explicit MemorySource(std::vector<uint8_t> bytes) : m_bytes(std::move(bytes)) {}
    const uint8_t* Data() const override { return m_bytes.data(); }
    size_t Size() const override { return m_bytes.size(); }

private:
    std::vector<uint8_t> m_bytes;
};

// Loads objects from the file on demand, repairing the table once when an
// offset turns out not to hold the object it should.
class FileLoader : public CosObjectLoader {
public:
    FileLoader(size_t headerOffset, bool repaired) : m_header(headerOffset), m_repaired(repaired) {}

    CosObj Load(CosDoc doc, ASInt32 objNum, CosXrefEntry& entry) override {
        // The table reads a missing object (nullptr) as null.
        try {
            CosObj obj = LoadEntry(doc, objNum, entry, true);
            return CosRawType(obj) == kCosNull ? nullptr : obj;
        } catch (const CVellumError& e) {
            if (ErrGetNumber(e.GetErrorCode()) == kErrNoMemory) throw;
            return nullptr;  // an unreadable object reads as null
        }
    }

    ASInt32 encryptNum = -1;  // the Encrypt dictionary is never decrypted
    CosObjStmCache objStms;

private:
    CosObj LoadEntry(CosDoc doc, ASInt32 objNum, CosXrefEntry& entry, bool mayRepair) {
        if (entry.kind == CosXrefEntry::kInObjStm)
            return objStms.Load(doc, static_cast<ASInt32>(entry.offset), entry.index, objNum);
        if (entry.kind != CosXrefEntry::kInFile) return CosNewNull();
        std::span<const uint8_t> file = CosDocGetSource(doc)->Span();
        uint64_t pos = m_header + entry.offset;
        ASInt32 num = 0, gen = 0;
        bool ok = false;
        if (pos < file.size()) {
            CosParser probe(doc, file, static_cast<size_t>(pos));
            ok = probe.ReadObjLabel(num, gen) && num == objNum;
        }
        if (!ok) {
            if (!mayRepair || m_repaired) return CosNewNull();
            m_repaired = true;
            CosWarn("object %ld is not where the cross-reference table says; the table is rebuilt by scanning the file",
                    static_cast<long>(objNum));
            CosRepairer rep(doc, file, m_header);
            rep.ScanObjects(false);
            rep.AddObjectStreamMembers(objStms);
            CosDocMutableFileInfo(doc).repaired = true;
            // The table may have moved: look the row up again.
            CosXrefEntry& again = CosDocXref(doc)[static_cast<size_t>(objNum)];
            return LoadEntry(doc, objNum, again, false);
        }
        CosParser parser(doc, file, static_cast<size_t>(pos));
        CosCryptFilter* crypt = objNum == encryptNum ? nullptr : CosDocGetReadCrypt(doc);
        parser.SetStringCrypt(crypt, objNum, static_cast<ASUns16>(gen));
        CosParser::StreamOptions opts;
        opts.encrypted = crypt != nullptr;
        return parser.ReadIndirect(num, gen, opts);
    }

    size_t m_header;
    bool m_repaired;
};

// Closes the document unless the open succeeds.
struct DocGuard {
    CosDoc doc;
    ~DocGuard() {
        if (doc) CosDocClose(doc);
    }
};

// True when every in-use row points at its own label and the trailer has a Root.
bool TableLooksSound(CosDoc doc, std::span<const uint8_t> file, size_t header,
                     const CosObjTable& table, CosObj trailer) {
    if (CosRawType(CosParser::DictGetRaw(trailer, cosnames::Root)) != kCosIndirect) return false;
    bool sound = true;
    table.ForEach([&](size_t n, const CosXrefEntry& e) {
        if (!sound || n == 0 || e.kind != CosXrefEntry::kInFile) return;
        if (e.offset >= file.size() - header) {
            sound = false;
            return;
        }
        CosParser p(doc, file, header + e.offset);
        ASInt32 num = 0, gen = 0;
        if (!p.ReadObjLabel(num, gen) || static_cast<size_t>(num) != n) sound = false;
    });
    return sound;
}

void SetUpEncryption(CosDoc doc, FileLoader& loader, const std::string& password) {
    CosObj trailer = CosDocGetTrailer(doc);
    CosDocFileInfo& info = CosDocMutableFileInfo(doc);
    CosObj raw = CosParser::DictGetRaw(trailer, cosnames::Encrypt);
    if (CosRawType(raw) == kCosIndirect) loader.encryptNum = CosRefGetID(raw);
    CosObj enc = CosDictGet(trailer, cosnames::Encrypt);
    if (CosObjGetType(enc) == kCosNull) {
        info.ownerAuthenticated = true;
        return;
    }
    if (CosObjGetType(enc) != kCosDict) ASRaiseParse(kErrExpectedDict);
    CosObj filter = CosDictGet(enc, cosnames::Filter);
    if (CosObjGetType(filter) != kCosName) ASRaiseParse(kErrExpectedName);
    const CosSecurityHandler* handler = CosFindSecurityHandler(CosNameValue(filter));
    if (!handler || !handler->open) ASRaiseErr(ErrSysPDDoc, kErrNoSecurityHandler);
    CosSecurityOpenResult r = handler->open(enc, CosDictGet(trailer, cosnames::ID), password);
    CosDocSetReadCrypt(doc, std::move(r.crypt));
    info.encrypted = true;
    info.ownerAuthenticated = r.ownerAuthenticated;
    info.permissions = r.permissions;
}

CosDoc OpenSource(std::unique_ptr<CosFileSource> source, const std::string& password,
                  const std::string& header, const std::string& path) {
    std::span<const uint8_t> file = source->Span();
    size_t headerPos = CosFindHeader(file, header);
    DocGuard guard{CosDocCreate()};
    CosDoc doc = guard.doc;
    CosDocFileInfo& info = CosDocMutableFileInfo(doc);
    CosReadVersion(file, headerPos + header.size(), info.majorVersion, info.minorVersion);
    info.headerOffset = static_cast<int64_t>(headerPos);
    info.fileLength = static_cast<int64_t>(file.size());
    info.path = path;
    CosDocSetSource(doc, std::move(source));
    file = CosDocGetSource(doc)->Span();

    bool repaired = false;
    CosXrefChain chain;
    try {
        size_t eof = CosFindEOFMarker(file);
        int64_t startxref = CosReadStartxref(file, eof);
        CosObjTable table;
        chain = CosReadXrefChain(doc, file, headerPos, startxref, table);
        if (chain.prevLoop)
            CosWarn("the chain of cross-reference sections loops back on itself; it is cut at the loop");
        if (TableLooksSound(doc, file, headerPos, table, chain.trailer)) {
            CosDocXref(doc) = std::move(table);
            CosDocSetTrailer(doc, chain.trailer);
            chain.trailer = nullptr;
        } else {
            repaired = true;
        }
    } catch (const CVellumError& e) {
        if (ErrGetNumber(e.GetErrorCode()) == kErrNoMemory) throw;
        repaired = true;
    }
    if (chain.trailer) CosObjDestroy(chain.trailer);

    auto loaderOwned = std::make_unique<FileLoader>(headerPos, repaired);
    FileLoader& loader = *loaderOwned;
    CosDocSetLoader(doc, std::move(loaderOwned));
    std::unique_ptr<CosRepairer> rep;
    if (repaired) {
        CosDocXref(doc).clear();
        rep = std::make_unique<CosRepairer>(doc, file, headerPos);
        try {
            CosDocSetTrailer(doc, rep->ScanObjects(true));
        } catch (const CVellumError& e) {
            if (ErrGetNumber(e.GetErrorCode()) == kErrNoMemory) throw;
            ASRaiseParse(kErrCouldNotRepair);
        }
        info.repaired = true;
        CosWarn("the cross-reference data is damaged; it is rebuilt by scanning the file");
    } else {
        info.xrefSections = static_cast<int>(chain.sectionOffsets.size());
        info.linearized = CosIsLinearized(file, chain.sectionOffsets);
    }

    SetUpEncryption(doc, loader, password);

    if (!repaired && CosObjGetType(CosDictGet(CosDocGetTrailer(doc), cosnames::Root)) != kCosDict) {
        // The tables read fine but lead nowhere useful: rebuild them.
        rep = std::make_unique<CosRepairer>(doc, file, headerPos);
        rep->ScanObjects(false);
        info.repaired = true;
        CosWarn("the trailer does not lead to the catalog; it is looked for by scanning the file");
    }
    if (rep) {
        rep->AddObjectStreamMembers(loader.objStms);
        rep->EnsureRoot(CosDocGetTrailer(doc));
    }
    CosDocXref(doc).ForEach([&info](size_t, const CosXrefEntry& e) {
        if (e.kind == CosXrefEntry::kInObjStm) info.objectStreams = true;
    });
    guard.doc = nullptr;
    return doc;
}

}  // namespace

std::unique_ptr<CosFileSource> CosFileSourceFromBytes(std::span<const uint8_t> bytes) {
    return std::make_unique<MemorySource>(std::vector<uint8_t>(bytes.begin(), bytes.end()));
}

std::unique_ptr<CosFileSource> CosFileSourceFromPath(const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) ASRaiseErr(ErrSysFile, kErrFileNotFound);
    std::vector<uint8_t> bytes;
    uint8_t buf[65536];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) bytes.insert(bytes.end(), buf, buf + n);
    bool bad = std::ferror(f) != 0;
    std::fclose(f);
    if (bad) ASRaiseErr(ErrSysFile, kErrFileRead);
    return std::make_unique<MemorySource>(std::move(bytes));
}

CosDoc CosDocOpen(const CosOpenParams& params) {
    return OpenSource(CosFileSourceFromPath(params.path), params.password,
                      params.header.empty() ? std::string("%PDF-") : params.header, params.path);
}

CosDoc CosDocOpenFromMemory(std::span<const uint8_t> bytes, const std::string& password) {
    return OpenSource(CosFileSourceFromBytes(bytes), password, "%PDF-", "");
}

CosObj CosParseObjectFromBuffer(CosDoc doc, const char* data, size_t length) {
    if (!data && length) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    CosParser parser(doc, std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(data), length));
    return parser.ReadObject();
}
