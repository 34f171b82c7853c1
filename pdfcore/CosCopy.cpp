#include "pdfcore/CosCopy.h"

#include <vector>

#include "pdfcore/CosInternal.h"

namespace {
// Deeper structures than this are not made by any real producer; the cap
// keeps a forged file from exhausting the stack.
constexpr int kMaxDepth = 256;
}  // namespace

ASInt32 CosCopier::Reserve(CosObj source) {
    source = CosResolve(source);
    if (!CosObjIsIndirect(source)) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    auto it = m_map.find(CosObjGetID(source));
    if (it != m_map.end()) return it->second;
    // The row keeps the number free until the copy is installed there.
    ASInt32 num = CosDocGetObjTableSize(m_dest);
    CosDocXref(m_dest).emplace_back();
    m_map[CosObjGetID(source)] = num;
    return num;
}

CosObj CosCopier::CopyOf(CosObj source) {
    source = CosResolve(source);
    if (!CosObjIsIndirect(source)) return CosNewNull();
    auto it = m_map.find(CosObjGetID(source));
    if (it == m_map.end()) return CosNewNull();
    return CosDocGetObjByID(m_dest, it->second);
}

CosObj CosCopier::Copy(CosObj obj) {
    obj = CosResolve(obj);
    CosObj result = CosObjIsIndirect(obj) ? CopyIndirect(obj, 0) : CopyDirect(obj, 0);
    // Indirect objects met on the way were only given their numbers; copy
    // them here, one at a time, so that a long chain of objects linked to
    // each other never deepens the stack.
    while (!m_pending.empty()) {
        CosObj next = m_pending.back();
        m_pending.pop_back();
        CopyIndirect(next, 0);
    }
    return result;
}

CosObj CosCopier::CopyIndirect(CosObj src, int depth) {
    ASInt32 num = Reserve(src);
    if (m_done[CosObjGetID(src)]) return CosDocGetObjByID(m_dest, num);
    m_done[CosObjGetID(src)] = true;
    CosObj copy;
    if (CosObjGetType(src) == kCosStream) {
        CosObj dict = CopyDirect(CosStreamDict(src), depth + 1);
        copy = CosNewStream(m_dest, dict, CosStreamEncodedData(src));
    } else {
        copy = CopyDirect(src, depth + 1);
    }
    CosDocInstallObject(m_dest, num, 0, copy);
    CosObjSetChanged(copy, true);
    return copy;
}

CosObj CosCopier::CopyValue(CosObj raw, int depth) {
    if (CosObjGetType(raw) == kCosNull) return CosNewNull();
    CosObj v = CosResolve(raw);
    if (CosObjIsIndirect(v)) {
        if (keepReferences) return CosNewRef(m_dest, CosObjGetID(v), CosObjGetGeneration(v));
        // Anything copied or reserved already (a cycle, shared objects, the
        // pages of an insertion) is referred to by its new number.
        auto it = m_map.find(CosObjGetID(v));
        if (it != m_map.end()) return CosNewRef(m_dest, it->second, 0);
        if (shouldCopy && !shouldCopy(v)) return CosNewNull();
        ASInt32 num = Reserve(v);
        m_pending.push_back(v);
        return CosNewRef(m_dest, num, 0);
    }
    return CopyDirect(v, depth);
}

CosObj CosCopier::CopyDirect(CosObj obj, int depth) {
    if (depth > kMaxDepth) ASRaiseErr(ErrSysCos, kErrTooComplex);
    switch (CosObjGetType(obj)) {
        case kCosNull: return CosNewNull();
        case kCosBoolean: return CosNewBoolean(m_dest, false, CosBooleanValue(obj));
        case kCosInteger:
        case kCosFixed: return CosNewNumber(m_dest, false, CosFixedValue(obj));
        case kCosName: return CosNewName(m_dest, false, CosNameValue(obj));
        case kCosString: {
            size_t len = 0;
            const char* p = CosStringValue(obj, &len);
            CosObj s = CosNewString(m_dest, false, p, len);
            CosStringSetHex(s, CosStringIsHex(obj));
            return s;
        }
        case kCosArray: {
            ASInt32 n = CosArrayLength(obj);
            CosObj a = CosNewArray(m_dest, false, n);
            for (ASInt32 i = 0; i < n; ++i) CosArrayAppend(a, CopyValue(CosArrayGetRaw(obj, i), depth + 1));
            return a;
        }
        case kCosDict: {
            ASInt32 n = CosDictCount(obj);
            CosObj d = CosNewDict(m_dest, false, n);
            for (ASInt32 i = 0; i < n; ++i) {
                ASAtom key = CosDictKeyAt(obj, i);
                if (skipKey && skipKey(obj, key)) continue;
                CosDictPut(d, key, CopyValue(CosDictValueAtRaw(obj, i), depth + 1));
            }
            return d;
        }
        case kCosStream:
            // A stream reached directly is still an indirect object.
            return CopyIndirect(obj, depth);
        default: return CosNewNull();
    }
}

CosObj CosObjCopy(CosObj obj, CosDoc dest, bool copyIndirect) {
    CosDocValidate(dest);
    CosCopier copier(dest);
    if (!copyIndirect) {
        // Shallow: references stay references to the same numbers (only
        // meaningful within one document).
        CosDoc src = CosObjGetDoc(CosResolve(obj));
        if (src != dest) ASRaiseErr(ErrSysCos, kErrBadOperation);
        copier.keepReferences = true;
    }
    return copier.Copy(obj);
}
