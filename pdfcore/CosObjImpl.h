// The records behind CosObj and CosDoc handles.  Private to the object
// model's own files (CosObj.cpp, CosStream.cpp, CosCopy.cpp, CosDoc.cpp).
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "pdfcore/CosInternal.h"
#include "base/ASMem.h"

struct CosDictBody {
    std::vector<std::pair<ASAtom, CosObjRec*>> entries;
    ASInt32 cache = -1;  // index of the entry found last
};

struct CosStreamBody {
    CosObjRec* dict = nullptr;  // owned
    // Data either lies in the document's file source or is owned here.
    bool inFile = false;
    bool encrypted = false;  // file bytes still need decrypting
    bool changed = false;    // replaced since read
    uint64_t offset = 0;
    uint64_t length = 0;
    std::vector<uint8_t> owned;
    ASInt32 cryptNum = -1;
    ASUns16 cryptGen = 0;
};

enum : uint8_t {
    kRecIndirect = 0x01,   // lives in the object table
    kRecContained = 0x02,  // a direct object that has a container
    kRecChanged = 0x04,
    kRecHex = 0x08,        // string written in hexadecimal
    kRecStatic = 0x10,     // the shared null: never freed, never owned
};

struct CosObjRec {
    CosDocRec* doc = nullptr;
    ASInt32 objNum = -1;
    ASUns16 gen = 0;
    uint8_t type = kCosNull;
    uint8_t flags = 0;
    union {
        double num;
        bool b;
        ASAtom name;
        struct {
            ASInt32 num;
            ASUns16 gen;
        } ref;
        std::string* str;
        std::vector<CosObjRec*>* arr;
        CosDictBody* dict;
        CosStreamBody* stm;
    } u{};

    static void* operator new(size_t size) { return ASmalloc(static_cast<ASInt32>(size)); }
    static void operator delete(void* p) { ASfree(p); }
};

struct CosDocRec {
    CosObjTable xref;
    CosObjRec* trailer = nullptr;  // direct dictionary, owned
    std::unique_ptr<CosFileSource> source;
    std::unique_ptr<CosObjectLoader> loader;
    std::unique_ptr<CosCryptFilter> readCrypt;
    std::unique_ptr<CosCryptFilter> writeCrypt;
    CosObjRec* writeEncryptDict = nullptr;  // direct dictionary, owned
    CosDocFileInfo info;
    ASInt16 precision = 9;
    ASInt32 loadDepth = 0;  // nesting of on-demand loads
};

// Shared helpers of the object model's files.
CosObjRec* CosNewRec(CosDoc doc, CosType type, bool indirect);
// Frees a direct object and everything it owns (never indirect objects).
void CosFreeDirect(CosObjRec* obj);
// Frees an object's payload and the record (for the document's teardown).
void CosFreeRec(CosObjRec* obj);
// Takes ownership of `value` for a container of `doc`: indirect values
// become references, direct ones are marked contained.
CosObjRec* CosAdoptValue(CosDoc doc, CosObjRec* value);
// The dictionary body of a dictionary or stream (raises "expected a dictionary object").
CosDictBody* CosDictBodyOf(CosObj obj);
// Raises the "expected a ..." error of `type` unless obj has that kind.
void CosCheckType(CosObj obj, CosType type);
ASInt32 CosNewObjNum(CosDoc doc);
