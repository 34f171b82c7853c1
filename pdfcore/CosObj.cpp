// Cos objects: construction, the typed getters, arrays and dictionaries.
#include <cmath>
#include <cstring>
#include <limits>

#include "pdfcore/CosObjImpl.h"
#include "base/ASUsage.h"

namespace {

CosObjRec g_nullObj = [] {
    CosObjRec r;
    r.type = kCosNull;
    r.flags = kRecStatic;
    return r;
}();

int UsageKind(uint8_t type) {
    switch (type) {
        case kCosArray: return kUsageCosArray;
        case kCosBoolean: return kUsageCosBoolean;
        case kCosDict: return kUsageCosDict;
        case kCosFixed:
        case kCosInteger: return kUsageCosNumber;
        case kCosName: return kUsageCosName;
        case kCosNull: return kUsageCosNull;
        case kCosStream: return kUsageCosStream;
        case kCosString: return kUsageCosString;
        default: return kUsageCosIndirect;
    }
}

[[noreturn]] void RaiseCos(ASInt32 number) { ASRaiseErr(ErrSysCos, number); }
[[noreturn]] void RaiseBadParm() { ASRaiseErr(ErrSysGeneral, kErrBadParm); }

ASInt32 ExpectedError(CosType type) {
    switch (type) {
        case kCosArray: return kErrExpectedArray;
        case kCosBoolean: return kErrExpectedBoolean;
        case kCosDict: return kErrExpectedDict;
        case kCosFixed:
        case kCosInteger: return kErrExpectedNumber;
        case kCosName: return kErrExpectedName;
        case kCosNull: return kErrExpectedNull;
        case kCosStream: return kErrExpectedStream;
        case kCosString: return kErrExpectedString;
        default: return kErrExpectedDirect;
    }
}

CosObjRec* Resolved(CosObjRec* obj) { return obj && obj->type == kCosIndirect ? CosResolve(obj) : obj; }

std::vector<CosObjRec*>& ArrayOf(CosObj obj) {
    CosCheckType(obj, kCosArray);
    return *obj->u.arr;
}

bool IsNumber(CosObj obj) { return obj && (obj->type == kCosInteger || obj->type == kCosFixed); }

}  // namespace

// ---------------------------------------------------------------- helpers

CosObjRec* CosNewRec(CosDoc doc, CosType type, bool indirect) {
    // Every object belongs to an open document; a null handle is refused
    // like any other bad one.
    CosDocValidate(doc);
    CosObjRec* r = new CosObjRec;
    r->doc = doc;
    r->type = type;
    ASUsageCreated(UsageKind(type));
    if (indirect) {
        ASInt32 num = CosNewObjNum(doc);
        CosXrefEntry& e = doc->xref[num];
        e.kind = CosXrefEntry::kNew;
        e.gen = 0;
        e.obj = r;
        r->objNum = num;
        r->flags |= kRecIndirect | kRecChanged;
    }
    return r;
}

void CosFreeRec(CosObjRec* obj) {
    if (!obj || (obj->flags & kRecStatic)) return;
    switch (obj->type) {
        case kCosString: delete obj->u.str; break;
        case kCosArray:
            for (CosObjRec* e : *obj->u.arr) CosFreeDirect(e);
            delete obj->u.arr;
            break;
        case kCosDict:
            for (auto& kv : obj->u.dict->entries) CosFreeDirect(kv.second);
            delete obj->u.dict;
            break;
        case kCosStream:
            CosFreeRec(obj->u.stm->dict);
            delete obj->u.stm;
            break;
        default: break;
    }
    ASUsageFreed(UsageKind(obj->type));
    delete obj;
}

void CosFreeDirect(CosObjRec* obj) {
    if (!obj || (obj->flags & (kRecStatic | kRecIndirect))) return;
    CosFreeRec(obj);
}

CosObjRec* CosAdoptValue(CosDoc doc, CosObjRec* value) {
    if (!value) RaiseBadParm();
    if (value->flags & kRecStatic) return value;
    if (value->doc != doc) RaiseCos(kErrBadOperation);
    if (value->flags & kRecIndirect) return CosNewRef(doc, value->objNum, value->gen);
    if (value->flags & kRecContained) RaiseCos(kErrAlreadyInContainer);
    value->flags |= kRecContained;
    return value;
}

void CosCheckType(CosObj obj, CosType type) {
    if (!obj) RaiseBadParm();
    uint8_t t = obj->type;
    bool ok = t == type || ((type == kCosInteger || type == kCosFixed) && IsNumber(obj));
    if (!ok) RaiseCos(ExpectedError(type));
}

CosDictBody* CosDictBodyOf(CosObj obj) {
    if (!obj) RaiseBadParm();
    if (obj->type == kCosStream) return obj->u.stm->dict->u.dict;
    if (obj->type != kCosDict) RaiseCos(kErrExpectedDict);
    return obj->u.dict;
}

// ---------------------------------------------------------------- generic

CosObj CosNewNull() { return &g_nullObj; }

CosType CosObjGetType(CosObj obj) {
    obj = Resolved(obj);
    return obj ? static_cast<CosType>(obj->type) : kCosNull;
}

bool CosObjIsNull(CosObj obj) { return CosObjGetType(obj) == kCosNull; }

CosDoc CosObjGetDoc(CosObj obj) { return obj ? obj->doc : nullptr; }

bool CosObjIsIndirect(CosObj obj) { return obj && (obj->flags & kRecIndirect); }

ASInt32 CosObjGetID(CosObj obj) { return CosObjIsIndirect(obj) ? obj->objNum : -1; }

ASUns16 CosObjGetGeneration(CosObj obj) { return CosObjIsIndirect(obj) ? obj->gen : 0; }

bool CosObjEqual(CosObj a, CosObj b) {
    a = Resolved(a);
    b = Resolved(b);
    if (a == b) return true;
    if (!a || !b) return false;
    if ((a->flags & kRecIndirect) || (b->flags & kRecIndirect)) return false;
    if (IsNumber(a) && IsNumber(b)) return a->u.num == b->u.num;
    if (a->type != b->type) return false;
    switch (a->type) {
        case kCosNull: return true;
        case kCosBoolean: return a->u.b == b->u.b;
        case kCosName: return a->u.name == b->u.name;
        case kCosString: return *a->u.str == *b->u.str;
        default: return false;
    }
}

bool CosObjIsChanged(CosObj obj) { return obj && (obj->flags & kRecChanged); }

void CosObjSetChanged(CosObj obj, bool changed) {
    if (!obj || (obj->flags & kRecStatic)) return;
    if (changed)
        obj->flags |= kRecChanged;
    else
        obj->flags &= static_cast<uint8_t>(~kRecChanged);
}

void CosObjDestroy(CosObj obj) {
    if (!obj || (obj->flags & kRecStatic)) return;
    if (obj->flags & kRecIndirect) {
        CosDoc doc = obj->doc;
        CosDocValidate(doc);
        CosXrefEntry& e = doc->xref[obj->objNum];
        e.obj = nullptr;
        e.kind = CosXrefEntry::kFree;
        CosFreeRec(obj);
    } else if (!(obj->flags & kRecContained)) {
        CosFreeRec(obj);
    }
}

// ---------------------------------------------------------------- scalars

CosObj CosNewBoolean(CosDoc doc, bool indirect, bool value) {
    CosObjRec* r = CosNewRec(doc, kCosBoolean, indirect);
    r->u.b = value;
    return r;
}

bool CosBooleanValue(CosObj obj) {
    obj = Resolved(obj);
    CosCheckType(obj, kCosBoolean);
    return obj->u.b;
}

static bool IsWhole(double v) { return std::isfinite(v) && v == std::floor(v) && std::fabs(v) < 9.0e15; }

CosObj CosNewNumber(CosDoc doc, bool indirect, double value) {
    if (!std::isfinite(value)) value = 0;
    CosObjRec* r = CosNewRec(doc, IsWhole(value) ? kCosInteger : kCosFixed, indirect);
    r->u.num = value;
    return r;
}

CosObj CosNewInteger(CosDoc doc, bool indirect, ASInt32 value) {
    return CosNewNumber(doc, indirect, static_cast<double>(value));
}

CosObj CosNewFixed(CosDoc doc, bool indirect, double value) { return CosNewNumber(doc, indirect, value); }

int64_t CosInteger64Value(CosObj obj) {
    obj = Resolved(obj);
    CosCheckType(obj, kCosInteger);
    double r = std::round(obj->u.num);
    if (r >= 9.2e18) return std::numeric_limits<int64_t>::max();
    if (r <= -9.2e18) return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(r);
}

ASInt32 CosIntegerValue(CosObj obj) {
    int64_t v = CosInteger64Value(obj);
    if (v > std::numeric_limits<ASInt32>::max()) return std::numeric_limits<ASInt32>::max();
    if (v < std::numeric_limits<ASInt32>::min()) return std::numeric_limits<ASInt32>::min();
    return static_cast<ASInt32>(v);
}

double CosFixedValue(CosObj obj) {
    obj = Resolved(obj);
    CosCheckType(obj, kCosFixed);
    return obj->u.num;
}

void CosNumberSetValue(CosObj obj, double value) {
    obj = Resolved(obj);
    CosCheckType(obj, kCosFixed);
    if (!std::isfinite(value)) value = 0;
    obj->u.num = value;
    obj->type = IsWhole(value) ? kCosInteger : kCosFixed;
    obj->flags |= kRecChanged;
}

CosObj CosNewName(CosDoc doc, bool indirect, ASAtom name) {
    CosObjRec* r = CosNewRec(doc, kCosName, indirect);
    r->u.name = name;
    return r;
}

ASAtom CosNameValue(CosObj obj) {
    obj = Resolved(obj);
    CosCheckType(obj, kCosName);
    return obj->u.name;
}

CosObj CosNewString(CosDoc doc, bool indirect, const char* bytes, size_t length) {
    CosObjRec* r = CosNewRec(doc, kCosString, indirect);
    r->u.str = new std::string(bytes ? bytes : "", bytes ? length : 0);
    return r;
}

CosObj CosNewString(CosDoc doc, bool indirect, std::string_view bytes) {
    return CosNewString(doc, indirect, bytes.data(), bytes.size());
}

const char* CosStringValue(CosObj obj, size_t* length) {
    obj = Resolved(obj);
    CosCheckType(obj, kCosString);
    if (length) *length = obj->u.str->size();
    return obj->u.str->data();
}

std::string CosStringBytes(CosObj obj) {
    size_t len = 0;
    const char* p = CosStringValue(obj, &len);
    return std::string(p, len);
}

void CosStringSetHex(CosObj obj, bool hex) {
    obj = Resolved(obj);
    CosCheckType(obj, kCosString);
    if (hex)
        obj->flags |= kRecHex;
    else
        obj->flags &= static_cast<uint8_t>(~kRecHex);
}

bool CosStringIsHex(CosObj obj) {
    obj = Resolved(obj);
    CosCheckType(obj, kCosString);
    return obj->flags & kRecHex;
}

// ---------------------------------------------------------------- arrays

CosObj CosNewArray(CosDoc doc, bool indirect, ASInt32 reserve) {
    CosObjRec* r = CosNewRec(doc, kCosArray, indirect);
    r->u.arr = new std::vector<CosObjRec*>();
    if (reserve > 0 && reserve < 1 << 20) r->u.arr->reserve(static_cast<size_t>(reserve));
    return r;
}

ASInt32 CosArrayLength(CosObj array) {
    array = Resolved(array);
    return static_cast<ASInt32>(ArrayOf(array).size());
}

CosObj CosArrayGetRaw(CosObj array, ASInt32 index) {
    array = Resolved(array);
    auto& v = ArrayOf(array);
    if (index < 0 || static_cast<size_t>(index) >= v.size()) return &g_nullObj;
    return v[static_cast<size_t>(index)];
}

CosObj CosArrayGet(CosObj array, ASInt32 index) { return Resolved(CosArrayGetRaw(array, index)); }

void CosArrayPut(CosObj array, ASInt32 index, CosObj value) {
    array = Resolved(array);
    auto& v = ArrayOf(array);
    if (index < 0) RaiseCos(kErrArrayBounds);
    CosObjRec* owned = CosAdoptValue(array->doc, value);
    size_t i = static_cast<size_t>(index);
    if (i >= v.size()) v.resize(i + 1, &g_nullObj);
    if (v[i] != owned) CosFreeDirect(v[i]);
    v[i] = owned;
    array->flags |= kRecChanged;
}

void CosArrayInsert(CosObj array, ASInt32 index, CosObj value) {
    array = Resolved(array);
    auto& v = ArrayOf(array);
    if (index < 0 || static_cast<size_t>(index) > v.size()) RaiseCos(kErrArrayBounds);
    v.insert(v.begin() + index, CosAdoptValue(array->doc, value));
    array->flags |= kRecChanged;
}

void CosArrayAppend(CosObj array, CosObj value) {
    array = Resolved(array);
    auto& v = ArrayOf(array);
    v.push_back(CosAdoptValue(array->doc, value));
    array->flags |= kRecChanged;
}

void CosArrayRemoveAt(CosObj array, ASInt32 index) {
    array = Resolved(array);
    auto& v = ArrayOf(array);
    if (index < 0 || static_cast<size_t>(index) >= v.size()) return;
    CosFreeDirect(v[static_cast<size_t>(index)]);
    v.erase(v.begin() + index);
    array->flags |= kRecChanged;
}

// ---------------------------------------------------------------- dictionaries

CosObj CosNewDict(CosDoc doc, bool indirect, ASInt32 reserve) {
    CosObjRec* r = CosNewRec(doc, kCosDict, indirect);
    r->u.dict = new CosDictBody();
    if (reserve > 0 && reserve < 1 << 16) r->u.dict->entries.reserve(static_cast<size_t>(reserve));
    return r;
}

static ASInt32 FindKey(CosDictBody* d, ASAtom key) {
    if (d->cache >= 0 && static_cast<size_t>(d->cache) < d->entries.size() &&
        d->entries[static_cast<size_t>(d->cache)].first == key)
        return d->cache;
    for (size_t i = 0; i < d->entries.size(); ++i) {
        if (d->entries[i].first == key) {
            d->cache = static_cast<ASInt32>(i);
            return d->cache;
        }
    }
    return -1;
}

ASInt32 CosDictCount(CosObj dict) {
    return static_cast<ASInt32>(CosDictBodyOf(Resolved(dict))->entries.size());
}

CosObj CosDictGet(CosObj dict, ASAtom key) {
    CosDictBody* d = CosDictBodyOf(Resolved(dict));
    ASInt32 i = FindKey(d, key);
    return i < 0 ? &g_nullObj : Resolved(d->entries[static_cast<size_t>(i)].second);
}

bool CosDictKnown(CosObj dict, ASAtom key) {
    CosDictBody* d = CosDictBodyOf(Resolved(dict));
    return FindKey(d, key) >= 0;
}

void CosDictPut(CosObj dict, ASAtom key, CosObj value) {
    dict = Resolved(dict);
    CosDictBody* d = CosDictBodyOf(dict);
    CosObjRec* owned = CosAdoptValue(dict->doc, value);
    ASInt32 i = FindKey(d, key);
    if (i >= 0) {
        auto& slot = d->entries[static_cast<size_t>(i)].second;
        if (slot != owned) CosFreeDirect(slot);
        slot = owned;
    } else {
        d->entries.emplace_back(key, owned);
        d->cache = static_cast<ASInt32>(d->entries.size() - 1);
    }
    dict->flags |= kRecChanged;
}

void CosDictRemove(CosObj dict, ASAtom key) {
    dict = Resolved(dict);
    CosDictBody* d = CosDictBodyOf(dict);
    ASInt32 i = FindKey(d, key);
    if (i < 0) return;
    CosFreeDirect(d->entries[static_cast<size_t>(i)].second);
    d->entries.erase(d->entries.begin() + i);
    d->cache = -1;
    dict->flags |= kRecChanged;
}

CosObj CosDictPutName(CosObj dict, ASAtom key, bool indirect, ASAtom name) {
    dict = Resolved(dict);
    CosDictBodyOf(dict);
    CosObj n = CosNewName(dict->doc, indirect, name);
    CosDictPut(dict, key, n);
    return n;
}

void CosDictPutInteger(CosObj dict, ASAtom key, ASInt32 value) {
    dict = Resolved(dict);
    CosDictBody* d = CosDictBodyOf(dict);
    ASInt32 i = FindKey(d, key);
    if (i >= 0) {
        CosObjRec* cur = d->entries[static_cast<size_t>(i)].second;
        if (IsNumber(cur) && !(cur->flags & kRecIndirect)) {
            cur->u.num = value;
            cur->type = kCosInteger;
            dict->flags |= kRecChanged;
            return;
        }
    }
    CosDictPut(dict, key, CosNewInteger(dict->doc, false, value));
}

ASAtom CosDictKeyAt(CosObj dict, ASInt32 index) {
    CosDictBody* d = CosDictBodyOf(Resolved(dict));
    if (index < 0 || static_cast<size_t>(index) >= d->entries.size()) return ASAtomNull;
    return d->entries[static_cast<size_t>(index)].first;
}

CosObj CosDictValueAtRaw(CosObj dict, ASInt32 index) {
    CosDictBody* d = CosDictBodyOf(Resolved(dict));
    if (index < 0 || static_cast<size_t>(index) >= d->entries.size()) return &g_nullObj;
    return d->entries[static_cast<size_t>(index)].second;
}

CosObj CosDictValueAt(CosObj dict, ASInt32 index) { return Resolved(CosDictValueAtRaw(dict, index)); }

ASInt32 CosDictGetInt(CosObj dict, ASAtom key, ASInt32 dflt) {
    CosObj v = CosDictGet(dict, key);
    return IsNumber(v) ? CosIntegerValue(v) : dflt;
}

double CosDictGetNumber(CosObj dict, ASAtom key, double dflt) {
    CosObj v = CosDictGet(dict, key);
    return IsNumber(v) ? v->u.num : dflt;
}

ASAtom CosDictGetName(CosObj dict, ASAtom key, ASAtom dflt) {
    CosObj v = CosDictGet(dict, key);
    return v->type == kCosName ? v->u.name : dflt;
}

bool CosDictGetBool(CosObj dict, ASAtom key, bool dflt) {
    CosObj v = CosDictGet(dict, key);
    return v->type == kCosBoolean ? v->u.b : dflt;
}

// ---------------------------------------------------------------- references

CosObj CosNewRef(CosDoc doc, ASInt32 objNum, ASUns16 gen) {
    CosObjRec* r = new CosObjRec;
    r->doc = doc;
    r->type = kCosIndirect;
    r->u.ref.num = objNum;
    r->u.ref.gen = gen;
    ASUsageCreated(kUsageCosIndirect);
    return r;
}

ASInt32 CosRefGetID(CosObj ref) {
    if (!ref || ref->type != kCosIndirect) RaiseBadParm();
    return ref->u.ref.num;
}

ASUns16 CosRefGetGeneration(CosObj ref) {
    if (!ref || ref->type != kCosIndirect) RaiseBadParm();
    return ref->u.ref.gen;
}

CosObj CosResolve(CosObj obj) {
    if (!obj) return &g_nullObj;
    if (obj->type != kCosIndirect) return obj;
    // The generation is not compared: files that disagree with their own
    // cross-reference data about generations are common, and viewers take
    // the object they find.
    CosObj target = CosDocGetObjByID(obj->doc, obj->u.ref.num);
    return target ? target : &g_nullObj;
}

// ---------------------------------------------------------------- enumeration

bool CosObjEnum(CosObj obj, CosObjEnumProc proc, void* clientData) {
    obj = Resolved(obj);
    if (!obj) RaiseBadParm();
    if (obj->type == kCosArray) {
        auto& v = *obj->u.arr;
        for (size_t i = 0; i < v.size(); ++i)
            if (!proc(&g_nullObj, Resolved(v[i]), clientData)) return false;
        return true;
    }
    CosDictBody* d = CosDictBodyOf(obj);
    for (size_t i = 0; i < d->entries.size(); ++i) {
        CosObj key = CosNewName(obj->doc, false, d->entries[i].first);
        bool go = proc(key, Resolved(d->entries[i].second), clientData);
        CosFreeRec(key);
        if (!go) return false;
    }
    return true;
}
