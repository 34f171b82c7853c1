// The Cos object model: every PDF value of a document, owned by one CosDoc.
//
// A CosObj is a handle (a pointer to a record owned by the document).  It is
// either direct, living inside exactly one container, or indirect, with an
// object number in the document's object table; containers refer to indirect
// objects without owning them.  Every lookup that misses gives the shared
// null object; every typed getter raises its "expected a ..." error on the
// wrong kind.  References read from a file are resolved on first access, so
// callers never see a kCosIndirect value from the getters below.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/ASError.h"

// ---------------------------------------------------------------- atoms
typedef ASUns32 ASAtom;
constexpr ASAtom ASAtomNull = 0;

// The atom for a text, created when new.  Leading and trailing blanks are cut
// before the lookup; a text of length 1 or less is taken as it is.
ASAtom ASAtomFromString(std::string_view text);
inline ASAtom ASAtomFromString(const char* text) { return ASAtomFromString(std::string_view(text ? text : "")); }
// The atom for a text when it exists already, else ASAtomNull (no trimming).
ASAtom ASAtomFind(std::string_view text);
// The text of an atom ("" for ASAtomNull or an unknown atom).
const char* ASAtomGetString(ASAtom atom);
ASUns32 ASAtomCount();

// A program-wide name, created in static initialisation:
//   static const ASAtom K_Type = ASAtomFromString("Type");
// The core's own names live in CosNames.h.

// ---------------------------------------------------------------- kinds
enum CosType : ASUns16 {
    kCosArray = 0,
    kCosBoolean = 1,
    kCosDict = 2,
    kCosFixed = 3,
    kCosInteger = 4,
    kCosName = 5,
    kCosNull = 6,
    kCosStream = 7,
    kCosString = 8,
    kCosIndirect = 9,
};

struct CosObjRec;
struct CosDocRec;
typedef CosObjRec* CosObj;
typedef CosDocRec* CosDoc;

// ---------------------------------------------------------------- generic
CosObj CosNewNull();  // the shared null object
CosType CosObjGetType(CosObj obj);
bool CosObjIsNull(CosObj obj);
CosDoc CosObjGetDoc(CosObj obj);  // null for the null object
bool CosObjIsIndirect(CosObj obj);
ASInt32 CosObjGetID(CosObj obj);          // object number of an indirect object, else -1
ASUns16 CosObjGetGeneration(CosObj obj);  // 0 for direct objects
// Identity for indirect objects, value equality for direct scalars.
bool CosObjEqual(CosObj a, CosObj b);
// Deep copy into `dest` (may be the same document).  Indirect objects reached
// from `obj` are copied once each and become new indirect objects of `dest`;
// the returned object is direct unless `obj` was indirect.
CosObj CosObjCopy(CosObj obj, CosDoc dest, bool copyIndirect = true);
// Removes an indirect object from its document's object table and frees it;
// references to it then read as null.  A direct object is released only when
// it has no container.
void CosObjDestroy(CosObj obj);
// Marks for the writer.
bool CosObjIsChanged(CosObj obj);
void CosObjSetChanged(CosObj obj, bool changed);

// ---------------------------------------------------------------- scalars
CosObj CosNewBoolean(CosDoc doc, bool indirect, bool value);
bool CosBooleanValue(CosObj obj);

// Makes kind integer when `value` is whole, kind fixed otherwise.
CosObj CosNewNumber(CosDoc doc, bool indirect, double value);
CosObj CosNewInteger(CosDoc doc, bool indirect, ASInt32 value);
CosObj CosNewFixed(CosDoc doc, bool indirect, double value);
// Integer value: the stored value rounded to the nearest whole number
// (halves away from zero), clamped to the 32-bit range.
ASInt32 CosIntegerValue(CosObj obj);
int64_t CosInteger64Value(CosObj obj);
double CosFixedValue(CosObj obj);
// Replaces a number's value in place (keeps the object, updates its kind).
void CosNumberSetValue(CosObj obj, double value);

CosObj CosNewName(CosDoc doc, bool indirect, ASAtom name);
ASAtom CosNameValue(CosObj obj);

CosObj CosNewString(CosDoc doc, bool indirect, const char* bytes, size_t length);
CosObj CosNewString(CosDoc doc, bool indirect, std::string_view bytes);
// The string's bytes (not zero-terminated: use the length).
const char* CosStringValue(CosObj obj, size_t* length);
std::string CosStringBytes(CosObj obj);
void CosStringSetHex(CosObj obj, bool hex);
bool CosStringIsHex(CosObj obj);

// ---------------------------------------------------------------- arrays
CosObj CosNewArray(CosDoc doc, bool indirect, ASInt32 reserve = 4);
ASInt32 CosArrayLength(CosObj array);
// The element, or the null object for an index outside 0..length-1.
CosObj CosArrayGet(CosObj array, ASInt32 index);
// Puts at index (extends with nulls when index >= length).
void CosArrayPut(CosObj array, ASInt32 index, CosObj value);
void CosArrayInsert(CosObj array, ASInt32 index, CosObj value);
void CosArrayAppend(CosObj array, CosObj value);
void CosArrayRemoveAt(CosObj array, ASInt32 index);

// ---------------------------------------------------------------- dictionaries
// Dictionary functions also accept a stream (they work on its dictionary).
CosObj CosNewDict(CosDoc doc, bool indirect, ASInt32 reserve = 4);
ASInt32 CosDictCount(CosObj dict);
CosObj CosDictGet(CosObj dict, ASAtom key);
bool CosDictKnown(CosObj dict, ASAtom key);
void CosDictPut(CosObj dict, ASAtom key, CosObj value);
void CosDictRemove(CosObj dict, ASAtom key);
CosObj CosDictPutName(CosObj dict, ASAtom key, bool indirect, ASAtom name);
// Overwrites an existing number under `key` in place, else puts a new one.
void CosDictPutInteger(CosObj dict, ASAtom key, ASInt32 value);
// Entries in stored order.
ASAtom CosDictKeyAt(CosObj dict, ASInt32 index);
CosObj CosDictValueAt(CosObj dict, ASInt32 index);

// Convenience readers that never raise: the default when absent or of
// another kind.
ASInt32 CosDictGetInt(CosObj dict, ASAtom key, ASInt32 dflt);
double CosDictGetNumber(CosObj dict, ASAtom key, double dflt);
ASAtom CosDictGetName(CosObj dict, ASAtom key, ASAtom dflt = ASAtomNull);
bool CosDictGetBool(CosObj dict, ASAtom key, bool dflt);

// ---------------------------------------------------------------- streams
// A stream is always indirect.  `dict` (direct, may be null for a new empty
// one) becomes the stream's dictionary.  `encodedData` is stored as is: it
// must already be encoded by the filters that `dict` names.
CosObj CosNewStream(CosDoc doc, CosObj dict, std::span<const uint8_t> encodedData);
CosObj CosStreamDict(CosObj stream);
// The stored (encoded) bytes, decrypted when the document was encrypted.
// The view stays valid until the stream's data is replaced or the document closes.
std::span<const uint8_t> CosStreamEncodedData(CosObj stream);
size_t CosStreamEncodedLength(CosObj stream);

struct CosDecodeOptions {
    uint64_t maxOutput = uint64_t(1) << 30;
    bool strict = false;
    bool keepImageCodecs = false;
};
// The bytes after every filter of Filter/DecodeParms.  A corrupt stream gives
// what decoded (with a warning) unless strict; an unknown filter raises.
// `complete` (optional) tells whether every filter decoded fully.
std::vector<uint8_t> CosStreamDecodedData(CosObj stream, const CosDecodeOptions& opts = {},
                                          bool* complete = nullptr);
// Replaces the data with bytes already encoded as `dict`'s Filter says.
void CosStreamSetEncodedData(CosObj stream, std::span<const uint8_t> encoded);
// Replaces the data with `decoded` encoded by Flate at `flateLevel`
// (Filter becomes FlateDecode, DecodeParms removed); level < 0 stores the
// bytes without a filter.
void CosStreamSetDecodedData(CosObj stream, std::span<const uint8_t> decoded, int flateLevel);
// True when the stream's data was replaced since it was read.
bool CosStreamDataChanged(CosObj stream);

// ---------------------------------------------------------------- enumeration
// Calls `proc` for every element of an array, every (key, value) of a
// dictionary or stream dictionary; stops when it returns false.  Values are
// resolved.
typedef bool (*CosObjEnumProc)(CosObj key, CosObj value, void* clientData);
bool CosObjEnum(CosObj obj, CosObjEnumProc proc, void* clientData);

// Text form of an object for diagnostics and the inspection tool.
std::string CosObjToDebugString(CosObj obj, int maxDepth = 8);
