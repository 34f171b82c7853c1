// A readable text form of objects for diagnostics and the inspection tool.
// It is not the writer's syntax: strings show printable bytes and escape the rest.
#include <cstdio>

#include "pdfcore/CosInternal.h"

namespace {

void Append(std::string& out, CosObj raw, int depth, int maxDepth) {
    char buf[64];
    // Values inside containers that are indirect objects show as references.
    if (raw && CosObjGetType(raw) != kCosNull && CosObjIsIndirect(CosResolve(raw)) && depth > 0) {
        CosObj r = CosResolve(raw);
        std::snprintf(buf, sizeof buf, "%d %d R", CosObjGetID(r), CosObjGetGeneration(r));
        out += buf;
        return;
    }
    CosObj obj = CosResolve(raw);
    switch (CosObjGetType(obj)) {
        case kCosNull: out += "null"; break;
        case kCosBoolean: out += CosBooleanValue(obj) ? "true" : "false"; break;
        case kCosInteger: std::snprintf(buf, sizeof buf, "%lld", static_cast<long long>(CosInteger64Value(obj))); out += buf; break;
        case kCosFixed: std::snprintf(buf, sizeof buf, "%g", CosFixedValue(obj)); out += buf; break;
        case kCosName: out += '/'; out += ASAtomGetString(CosNameValue(obj)); break;
        case kCosString: {
            size_t len = 0;
            const char* p = CosStringValue(obj, &len);
            out += '(';
            for (size_t i = 0; i < len && i < 200; ++i) {
                unsigned char c = static_cast<unsigned char>(p[i]);
                if (c >= 32 && c < 127 && c != '\\' && c != '(' && c != ')') {
                    out += static_cast<char>(c);
                } else {
                    std::snprintf(buf, sizeof buf, "\\%03o", c);
                    out += buf;
                }
            }
            if (len > 200) out += "...";
            out += ')';
            break;
        }
        case kCosArray: {
            if (depth > maxDepth) { out += "[...]"; break; }
            out += '[';
            for (ASInt32 i = 0, n = CosArrayLength(obj); i < n; ++i) {
                if (i) out += ' ';
                Append(out, CosArrayGetRaw(obj, i), depth + 1, maxDepth);
            }
            out += ']';
            break;
        }
        case kCosDict:
        case kCosStream: {
            if (depth > maxDepth) { out += "<<...>>"; break; }
            out += "<<";
            for (ASInt32 i = 0, n = CosDictCount(obj); i < n; ++i) {
                out += " /";
                out += ASAtomGetString(CosDictKeyAt(obj, i));
                out += ' ';
                Append(out, CosDictValueAtRaw(obj, i), depth + 1, maxDepth);
            }
            out += " >>";
            if (CosObjGetType(obj) == kCosStream) {
                std::snprintf(buf, sizeof buf, " stream(%zu bytes)", CosStreamEncodedLength(obj));
                out += buf;
            }
            break;
        }
        default: out += "?"; break;
    }
}

}  // namespace

std::string CosObjToDebugString(CosObj obj, int maxDepth) {
    std::string out;
    Append(out, obj, 0, maxDepth);
    return out;
}
