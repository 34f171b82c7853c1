#include "pipeline/ObjectGraph.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <unordered_set>

#include "pdfcore/CosDoc.h"

namespace pipeline {
namespace {

// Direct nesting deeper than this is not followed: the parser limits nesting
// far below it, so only a damaged in-memory structure could reach it.
constexpr int kMaxDirectDepth = 256;

bool IsContainer(CosObj o) {
    const CosType t = CosObjGetType(o);
    return t == kCosArray || t == kCosDict || t == kCosStream;
}

void Walk(CosObj obj, const std::function<void(CosObj)>& fn, int depth) {
    if (depth > kMaxDirectDepth) return;
    const CosType t = CosObjGetType(obj);
    if (t == kCosArray) {
        const ASInt32 n = CosArrayLength(obj);
        for (ASInt32 i = 0; i < n; ++i) {
            CosObj v = CosArrayGet(obj, i);
            fn(v);
            if (!CosObjIsIndirect(v) && IsContainer(v)) Walk(v, fn, depth + 1);
        }
    } else if (t == kCosDict || t == kCosStream) {
        const ASInt32 n = CosDictCount(obj);
        for (ASInt32 i = 0; i < n; ++i) {
            CosObj v = CosDictValueAt(obj, i);
            fn(v);
            if (!CosObjIsIndirect(v) && IsContainer(v)) Walk(v, fn, depth + 1);
        }
    }
}

size_t Redirect(CosObj obj, const std::unordered_map<CosObj, CosObj>& redirect, int depth) {
    if (depth > kMaxDirectDepth) return 0;
    size_t changed = 0;
    const CosType t = CosObjGetType(obj);
    if (t == kCosArray) {
        const ASInt32 n = CosArrayLength(obj);
        for (ASInt32 i = 0; i < n; ++i) {
            CosObj v = CosArrayGet(obj, i);
            if (CosObjIsIndirect(v)) {
                auto it = redirect.find(v);
                if (it != redirect.end()) {
                    CosArrayPut(obj, i, it->second);
                    ++changed;
                }
            } else if (IsContainer(v)) {
                changed += Redirect(v, redirect, depth + 1);
            }
        }
    } else if (t == kCosDict || t == kCosStream) {
        const ASInt32 n = CosDictCount(obj);
        for (ASInt32 i = 0; i < n; ++i) {
            CosObj v = CosDictValueAt(obj, i);
            if (CosObjIsIndirect(v)) {
                auto it = redirect.find(v);
                if (it != redirect.end()) {
                    CosDictPut(obj, CosDictKeyAt(obj, i), it->second);
                    ++changed;
                }
            } else if (IsContainer(v)) {
                changed += Redirect(v, redirect, depth + 1);
            }
        }
    }
    return changed;
}

}  // namespace

std::vector<CosObj> ReachableIndirectObjects(CosDoc doc) {
    std::vector<CosObj> order;
    std::unordered_set<CosObj> seen;
    std::deque<CosObj> queue;
    auto visit = [&](CosObj v) {
        if (CosObjIsIndirect(v) && seen.insert(v).second) {
            order.push_back(v);
            queue.push_back(v);
        }
    };
    ForEachDirectValue(CosDocGetTrailer(doc), visit);
    while (!queue.empty()) {
        CosObj o = queue.front();
        queue.pop_front();
        ForEachDirectValue(o, visit);
    }
    return order;
}

void ForEachDirectValue(CosObj obj, const std::function<void(CosObj)>& fn) { Walk(obj, fn, 0); }

size_t RedirectReferences(CosDoc doc, const std::vector<CosObj>& objects,
                          const std::unordered_map<CosObj, CosObj>& redirect) {
    if (redirect.empty()) return 0;
    size_t changed = Redirect(CosDocGetTrailer(doc), redirect, 0);
    for (CosObj o : objects) changed += Redirect(o, redirect, 0);
    return changed;
}

}  // namespace pipeline

namespace pipeline {
namespace {

void AppendNumber(std::string& out, uint64_t v) {
    out += std::to_string(v);
    out += ';';
}

bool Canon(std::string& out, CosObj obj, const std::function<std::string(CosObj)>& refName,
           const std::vector<ASAtom>* skipKeys, int depth) {
    if (depth > 64) return false;
    switch (CosObjGetType(obj)) {
    case kCosNull: out += 'n'; return true;
    case kCosBoolean: out += CosBooleanValue(obj) ? 't' : 'f'; return true;
    case kCosInteger: out += 'i'; out += std::to_string(CosInteger64Value(obj)); out += ';'; return true;
    case kCosFixed: {
        double v = CosFixedValue(obj);
        uint64_t bits;
        static_assert(sizeof bits == sizeof v);
        std::memcpy(&bits, &v, sizeof v);
        out += 'r';
        AppendNumber(out, bits);
        return true;
    }
    case kCosName: {
        const char* n = ASAtomGetString(CosNameValue(obj));
        out += '/';
        AppendNumber(out, std::strlen(n));
        out += n;
        return true;
    }
    case kCosString: {
        std::string b = CosStringBytes(obj);
        out += 's';
        AppendNumber(out, b.size());
        out += b;
        return true;
    }
    case kCosArray: {
        out += '[';
        const ASInt32 n = CosArrayLength(obj);
        for (ASInt32 i = 0; i < n; ++i) {
            CosObj v = CosArrayGet(obj, i);
            if (CosObjIsIndirect(v)) {
                out += 'R';
                out += refName(v);
                out += ';';
            } else if (!Canon(out, v, refName, nullptr, depth + 1)) {
                return false;
            }
        }
        out += ']';
        return true;
    }
    case kCosDict:
    case kCosStream: {
        std::vector<std::pair<std::string_view, ASInt32>> keys;
        const ASInt32 n = CosDictCount(obj);
        for (ASInt32 i = 0; i < n; ++i) {
            ASAtom k = CosDictKeyAt(obj, i);
            if (skipKeys && std::find(skipKeys->begin(), skipKeys->end(), k) != skipKeys->end()) continue;
            keys.emplace_back(ASAtomGetString(k), i);
        }
        std::sort(keys.begin(), keys.end());
        out += '<';
        for (const auto& [k, i] : keys) {
            AppendNumber(out, k.size());
            out += k;
            CosObj v = CosDictValueAt(obj, i);
            if (CosObjIsIndirect(v)) {
                out += 'R';
                out += refName(v);
                out += ';';
            } else if (!Canon(out, v, refName, nullptr, depth + 1)) {
                return false;
            }
        }
        out += '>';
        if (CosObjGetType(obj) == kCosStream) {
            out += 'S';
            AppendNumber(out, CosStreamEncodedLength(obj));
        }
        return true;
    }
    default: return false;
    }
}

}  // namespace

bool AppendCanonical(std::string& out, CosObj obj, const std::function<std::string(CosObj)>& refName,
                     const std::vector<ASAtom>& skipKeys) {
    return Canon(out, obj, refName, &skipKeys, 0);
}

}  // namespace pipeline
