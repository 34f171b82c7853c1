// Internals shared by the pieces of the core (object model, parser, writer,
// security).  Program code outside pdfcore/ never includes this.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "pdfcore/CosDoc.h"

// The bytes of an opened file.  Stream data read from the file stays here
// (streams keep an offset and a length) until an operation replaces it.
class CosFileSource {
public:
    virtual ~CosFileSource() = default;
    virtual const uint8_t* Data() const = 0;
    virtual size_t Size() const = 0;
    std::span<const uint8_t> Span() const { return {Data(), Size()}; }
};
// A source over a whole file read into memory (or mapped).
std::unique_ptr<CosFileSource> CosFileSourceFromPath(const std::string& path);
std::unique_ptr<CosFileSource> CosFileSourceFromBytes(std::span<const uint8_t> bytes);

// One row of the object table.
struct CosXrefEntry {
    enum Kind : uint8_t {
        kFree = 0,      // no object (reads as null)
        kInFile = 1,    // at `offset` in the file (relative to the header offset)
        kInObjStm = 2,  // element `index` of object stream number `offset`
        kNew = 3,       // made in memory; `obj` holds it
    };
    Kind kind = kFree;
    ASUns16 gen = 0;
    bool loading = false;  // guards against reference cycles while loading
    bool loadFailed = false;
    uint64_t offset = 0;
    ASUns32 index = 0;
    CosObjRec* obj = nullptr;  // the loaded (or new) object, owned by the document
};

// Loads objects on demand; implemented by the parser.  `Load` returns the
// object for the entry (a fresh object of the document, not yet installed),
// or null when it cannot be read (the entry then reads as null).
class CosObjectLoader {
public:
    virtual ~CosObjectLoader() = default;
    virtual CosObj Load(CosDoc doc, ASInt32 objNum, CosXrefEntry& entry) = 0;
};

// -------------------------------------------------- document internals
std::vector<CosXrefEntry>& CosDocXref(CosDoc doc);
CosDocFileInfo& CosDocMutableFileInfo(CosDoc doc);
void CosDocSetTrailer(CosDoc doc, CosObj trailerDict);
void CosDocSetSource(CosDoc doc, std::unique_ptr<CosFileSource> source);
CosFileSource* CosDocGetSource(CosDoc doc);
void CosDocSetLoader(CosDoc doc, std::unique_ptr<CosObjectLoader> loader);
void CosDocSetReadCrypt(CosDoc doc, std::unique_ptr<CosCryptFilter> crypt);

// Makes `obj` (direct, without a container) the indirect object `objNum`
// generation `gen`, replacing the table entry's object.
void CosDocInstallObject(CosDoc doc, ASInt32 objNum, ASUns16 gen, CosObj obj);

// -------------------------------------------------- object internals
// A reference read from a file; resolved through the object table when a
// getter reaches it.  Owned by its container like a direct object.
CosObj CosNewRef(CosDoc doc, ASInt32 objNum, ASUns16 gen);
// For code that must see references unresolved (the writer's reachability
// walk resolves through these too, but the parser never resolves).
CosObj CosDictValueAtRaw(CosObj dict, ASInt32 index);
CosObj CosArrayGetRaw(CosObj array, ASInt32 index);
// Resolves a value that may be a reference (null for a free entry).
CosObj CosResolve(CosObj obj);
// The number and generation a reference points at.
ASInt32 CosRefGetID(CosObj ref);
ASUns16 CosRefGetGeneration(CosObj ref);

// A stream whose data lies in the document's file source at
// [offset, offset + length) (absolute file offsets).  When `encrypted`, the
// bytes are decrypted with the read filter under `objNum`/`gen` on first use.
CosObj CosNewStreamFromFile(CosDoc doc, CosObj dict, uint64_t offset, uint64_t length,
                            bool encrypted);
// Tells the stream its own number for decryption (set when installed).
void CosStreamSetCryptID(CosObj stream, ASInt32 objNum, ASUns16 gen);
