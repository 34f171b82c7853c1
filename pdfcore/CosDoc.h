// Cos documents: the owner of every object, the object table, the trailer,
// opening from a file (the parser) and saving (the writer).
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "pdfcore/CosObj.h"

// Starts the core layers above memory and errors: registers the security
// handlers.  Called once after VellumInit.
void CosCoreInit();

// Creates an empty document with an empty trailer.
CosDoc CosDocCreate();
// Closes the document and frees every object it owns.
void CosDocClose(CosDoc doc);
// Raises "bad parameter" (system 1) for a handle that is not open, (system 0) for null.
void CosDocValidate(CosDoc doc);

CosObj CosDocGetTrailer(CosDoc doc);
CosObj CosDocGetRoot(CosDoc doc);  // trailer Root (null when absent)
CosObj CosDocGetInfo(CosDoc doc);  // trailer Info (null when absent)
// The indirect object with this number (loading it), or null.
CosObj CosDocGetObjByID(CosDoc doc, ASInt32 objNum);
// One past the highest object number in the table.
ASInt32 CosDocGetObjTableSize(CosDoc doc);
// Loads every object of the table (for checks); returns how many loaded.
ASInt32 CosDocLoadAllObjects(CosDoc doc);
// The next object number after `id` that may hold an object, or the table
// size when there is none: a loop over every object skips, with it, the
// long empty stretches that damaged files can give the table.
ASInt32 CosDocNextObjID(CosDoc doc, ASInt32 id);
// Where an object of an opened file is stored, as its table says (for the
// inspection tools): at a file offset (relative to the header), or as
// element `index` of the object stream whose number is in `offset`.
struct CosObjLocation {
    enum Where { kFree, kInFile, kInObjStm, kNew };
    Where where = kFree;
    uint64_t offset = 0;
    ASUns32 index = 0;
};
CosObjLocation CosDocGetObjLocation(CosDoc doc, ASInt32 objNum);

// Real-number precision used when writing fixed numbers (at most 9).  The
// default, 9, writes back every real read from a file as it stood: fewer
// decimals would round matrices and font scales (0.833333 to 0.83333),
// which readers render visibly differently.
void CosDocSetPrecision(CosDoc doc, ASInt16 precision);
ASInt16 CosDocGetPrecision(CosDoc doc);

// ---------------------------------------------------------------- file state
struct CosDocFileInfo {
    ASInt16 majorVersion = 1;
    ASInt16 minorVersion = 4;
    int64_t headerOffset = 0;
    int64_t fileLength = 0;
    int xrefSections = 0;      // sections in the chain
    bool linearized = false;
    bool repaired = false;     // the object table was rebuilt by scanning
    bool encrypted = false;
    // Some objects were stored in object streams (for a document made by
    // merging, in any of its sources).
    bool objectStreams = false;
    bool ownerAuthenticated = false;  // opened with the owner password (or unencrypted)
    ASInt32 permissions = -1;         // P of the encryption dictionary (-1: all)
    std::string path;
};
const CosDocFileInfo& CosDocGetFileInfo(CosDoc doc);

// ---------------------------------------------------------------- security
// Per-object encryption of strings and streams, installed by a security
// handler.  RC4 is symmetric, but both directions are kept for clarity.
class CosCryptFilter {
public:
    virtual ~CosCryptFilter() = default;
    virtual void Decrypt(ASUns32 objNum, ASUns16 gen, std::vector<uint8_t>& data) = 0;
    virtual void Encrypt(ASUns32 objNum, ASUns16 gen, std::vector<uint8_t>& data) = 0;
};

// What a security handler returns when it opens an encrypted document.
struct CosSecurityOpenResult {
    std::unique_ptr<CosCryptFilter> crypt;
    bool ownerAuthenticated = false;
    ASInt32 permissions = -1;
};

// A security handler, registered by filter name ("Standard").  `open` reads
// the Encrypt dictionary, authenticates `password` (empty when none was
// given) and raises "this document requires a password" when it fails.
struct CosSecurityHandler {
    CosSecurityOpenResult (*open)(CosObj encryptDict, CosObj idArray, const std::string& password);
};
void CosRegisterSecurityHandler(ASAtom filterName, const CosSecurityHandler& handler);
const CosSecurityHandler* CosFindSecurityHandler(ASAtom filterName);

// The filter applied when reading (set by the parser) and the one applied
// when writing (set by the program before saving; null writes unencrypted).
CosCryptFilter* CosDocGetReadCrypt(CosDoc doc);
void CosDocSetWriteCrypt(CosDoc doc, std::unique_ptr<CosCryptFilter> crypt, CosObj encryptDict);
CosCryptFilter* CosDocGetWriteCrypt(CosDoc doc);
// The Encrypt dictionary written with the write filter (direct dictionary).
CosObj CosDocGetWriteEncryptDict(CosDoc doc);

// ---------------------------------------------------------------- opening
struct CosOpenParams {
    std::string path;
    std::string password;             // tried as user, then owner password
    std::string header = "%PDF-";     // header text to search for
};
// Opens a PDF file: header, end marker, startxref, the cross-reference chain
// (tables, streams, hybrids), repair when that data is broken, and the
// encryption check.  Objects load on demand.
CosDoc CosDocOpen(const CosOpenParams& params);
// Opens from bytes in memory (the bytes are copied).
CosDoc CosDocOpenFromMemory(std::span<const uint8_t> bytes, const std::string& password = "");

// Parses one object in PDF syntax from a buffer (for the dictionary form of
// settings files).  Raises the parser's errors on bad syntax.
CosObj CosParseObjectFromBuffer(CosDoc doc, const char* data, size_t length);

// ---------------------------------------------------------------- saving
enum : ASUns32 {
    kCosSaveFull = 0x01,
    kCosSaveCopy = 0x02,
    kCosSaveLinearize = 0x08,   // document-level flag 8: linearised output
    kCosSaveCompact = 0x1000,   // no optional white space in dictionaries
    // The compact form: objects packed into object streams and a
    // cross-reference stream instead of the table (PDF 1.5; implies
    // kCosSaveCompact).
    kCosSaveObjectStreams = 0x2000,
};
struct CosSaveParams {
    ASUns32 size = sizeof(CosSaveParams);
    ASUns32 flags = kCosSaveFull | kCosSaveCopy;
    std::string path;           // written atomically (temporary file + rename)
    ASInt16 majorVersion = 0;   // 0: keep the document's version
    ASInt16 minorVersion = 0;
    // Objects per object stream in the compact form; 0: the writer's choice.
    ASInt32 objectsPerStream = 0;
    // When 0 or more: a save that writes more bytes than this leaves the
    // target untouched (the temporary is discarded) and still returns the
    // number of bytes it wrote.
    int64_t commitOnlyIfAtMost = -1;
};
// Writes the document.  Returns the number of bytes written.
int64_t CosDocSave(CosDoc doc, const CosSaveParams& params);
