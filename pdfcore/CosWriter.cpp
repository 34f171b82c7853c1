// Object bodies and the fixed parts of a written PDF file.
#include "pdfcore/CosWriter.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cmath>
#include <cstring>

#include "pdfcore/CosInternal.h"
#include "pdfcore/CosNames.h"
#include "pdfcore/CosSyntax.h"

namespace {

// Names whose presence raises the header version the output needs.
const ASAtom K_SMask = ASAtomFromString("SMask");
const ASAtom K_None = ASAtomFromString("None");
const ASAtom K_Transparency = ASAtomFromString("Transparency");
const ASAtom K_JPXDecode = ASAtomFromString("JPXDecode");
const ASAtom K_JBIG2Decode = ASAtomFromString("JBIG2Decode");
const ASAtom K_OCProperties = ASAtomFromString("OCProperties");

// Direct nesting deeper than this is refused rather than risking the stack.
constexpr int kMaxDepth = 1000;

[[noreturn]] void BadParm() { ASRaiseErr(ErrSysGeneral, kErrBadParm); }

// White space and delimiters end a token; everything else is "regular".
using CosSyntax::IsRegular;
bool IsDelimiter(unsigned char c) { return CosSyntax::IsDelim(c); }

// True when the written form of `value` begins with a regular character
// (numbers, booleans, null, references), so that it would join a preceding
// name or number without a blank.
bool StartsRegular(CosObj value) {
    CosObj v = CosResolve(value);
    if (CosObjIsIndirect(v)) return true;  // written "n g R"
    switch (CosObjGetType(v)) {
        case kCosName:
        case kCosString:
        case kCosArray:
        case kCosDict:
            return false;
        default:
            return true;
    }
}

void AppendUnsigned(std::string& out, uint64_t v) {
    char buf[24];
    auto res = std::to_chars(buf, buf + sizeof buf, v);
    out.append(buf, res.ptr);
}

const char kHexDigits[] = "0123456789ABCDEF";

}  // namespace

// ---------------------------------------------------------------- scalars

void CosWriteFixed(std::string& out, double value, int precision) {
    if (precision < 0 || precision > 9) BadParm();
    if (!std::isfinite(value)) value = 0.0;
    const bool negative = std::signbit(value) && value != 0.0;
    double a = std::fabs(value);
    static const double kPow10[10] = {1, 10, 100, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};
    // A double holds about 15 significant digits; decimals beyond them would
    // only print the binary rounding of the value (4000000000.099999904), so
    // large magnitudes get fewer of them.
    int wholeDigits = 1;
    for (double m = 10; a >= m && wholeDigits < 15; m *= 10) ++wholeDigits;
    if (precision > 15 - wholeDigits) precision = 15 - wholeDigits;
    a += 0.5 / kPow10[precision];
    double whole = std::floor(a);
    double frac = a - whole;
    // Whole parts beyond 64 bits cannot occur in sensible PDF; cap them
    // rather than overflow the conversion.
    const uint64_t wholeInt = whole >= 1.8e19 ? UINT64_MAX : static_cast<uint64_t>(whole);
    uint32_t fracInt = static_cast<uint32_t>(frac * kPow10[precision]);
    if (precision > 0 && fracInt >= static_cast<uint32_t>(kPow10[precision]))
        fracInt = static_cast<uint32_t>(kPow10[precision]) - 1;

    const size_t start = out.size();
    if (negative) out += '-';
    AppendUnsigned(out, wholeInt);
    out += '.';
    char digits[10];
    for (int i = precision - 1; i >= 0; --i) {
        digits[i] = static_cast<char>('0' + fracInt % 10);
        fracInt /= 10;
    }
    out.append(digits, static_cast<size_t>(precision));
    // Trailing zeros, then a trailing '.', never below one character.
    while (out.size() - start > 1 && out.back() == '0') out.pop_back();
    if (out.size() - start > 1 && out.back() == '.') out.pop_back();
}

void CosWriteInteger(std::string& out, int64_t value) {
    char buf[24];
    auto res = std::to_chars(buf, buf + sizeof buf, value);
    out.append(buf, res.ptr);
}

void CosWriteName(std::string& out, std::string_view name) {
    out += '/';
    for (unsigned char c : name) {
        if (c < 33 || c > 126 || c == '#' || IsDelimiter(c)) {
            out += '#';
            out += kHexDigits[c >> 4];
            out += kHexDigits[c & 15];
        } else {
            out += static_cast<char>(c);
        }
    }
}

void CosWriteLiteralString(std::string& out, std::span<const uint8_t> bytes, bool encrypted) {
    out += '(';
    for (uint8_t c : bytes) {
        switch (c) {
            case '\\': out += "\\\\"; break;
            case '(': out += "\\("; break;
            case ')': out += "\\)"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            case '\b': out += "\\b"; break;
            case '\f': out += "\\f"; break;
            default:
                if (c >= 128 && !encrypted) {
                    out += '\\';
                    out += static_cast<char>('0' + (c >> 6));
                    out += static_cast<char>('0' + ((c >> 3) & 7));
                    out += static_cast<char>('0' + (c & 7));
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    out += ')';
}

void CosWriteHexString(std::string& out, std::span<const uint8_t> bytes) {
    out += '<';
    for (uint8_t c : bytes) {
        out += kHexDigits[c >> 4];
        out += kHexDigits[c & 15];
    }
    out += '>';
}

// ---------------------------------------------------------------- bodies

void CosObjWriter::WriteIndirect(std::string& out, ASInt32 objNum, ASUns16 gen, CosObj obj) {
    if (obj == nullptr) BadParm();
    CosWriteInteger(out, objNum);
    out += ' ';
    CosWriteInteger(out, gen);
    out += " obj\r";
    WriteBody(out, obj);
    out += "\rendobj\r";
    if (!CosObjIsNull(obj)) CosObjSetChanged(obj, false);
}

void CosObjWriter::WriteBody(std::string& out, CosObj obj) {
    if (obj == nullptr) BadParm();
    if (CosObjGetType(obj) == kCosStream)
        WriteStream(out, obj, 0);
    else
        WriteDirect(out, obj, 0);
}

void CosObjWriter::WriteValue(std::string& out, CosObj value) { WriteValueAt(out, value, 0); }

void CosObjWriter::WriteReference(std::string& out, ASInt32 objNum, ASUns16 gen) {
    if (m_renumber) {
        ASInt32 n = (objNum > 0 && static_cast<size_t>(objNum) < m_renumber->size())
                        ? (*m_renumber)[static_cast<size_t>(objNum)]
                        : 0;
        if (n <= 0) {
            out += "null";
            return;
        }
        objNum = n;
        gen = 0;
    }
    CosWriteInteger(out, objNum);
    out += ' ';
    CosWriteInteger(out, gen);
    out += " R";
}

void CosObjWriter::WriteValueAt(std::string& out, CosObj value, int depth) {
    // Containers hold references to indirect objects; a reference whose
    // object is missing (free, never written, failed to load) reads as null.
    CosObj v = CosResolve(value);
    if (CosObjIsIndirect(v)) {
        WriteReference(out, CosObjGetID(v), CosObjGetGeneration(v));
        return;
    }
    WriteDirect(out, v, depth);
}

void CosObjWriter::WriteDirect(std::string& out, CosObj obj, int depth) {
    if (depth > kMaxDepth) ASRaiseErr(ErrSysCos, kErrTooComplex);
    switch (CosObjGetType(obj)) {
        case kCosArray: WriteArray(out, obj, depth); break;
        case kCosBoolean: out += CosBooleanValue(obj) ? "true" : "false"; break;
        case kCosDict: WriteDict(out, obj, depth); break;
        case kCosFixed: CosWriteFixed(out, CosFixedValue(obj), m_precision); break;
        case kCosInteger: CosWriteInteger(out, CosInteger64Value(obj)); break;
        case kCosName: {
            ASAtom a = CosNameValue(obj);
            NoteName(ASAtomNull, a);
            CosWriteName(out, ASAtomGetString(a));
            break;
        }
        case kCosNull: out += "null"; break;
        case kCosStream: WriteStream(out, obj, depth); break;
        case kCosString: WriteString(out, obj); break;
        case kCosIndirect: out += "null"; break;
        default: ASRaiseErr(ErrSysGeneral, kErrInternal);
    }
}

void CosObjWriter::NoteName(ASAtom key, ASAtom value) {
    if (value == K_JPXDecode) Need(5);
    else if (value == K_JBIG2Decode || value == K_Transparency) Need(4);
    if (key == K_SMask && value != K_None) Need(4);
    else if (key == K_OCProperties) Need(5);
}

void CosObjWriter::WriteDictEntry(std::string& out, ASAtom key, CosObj value) {
    CosWriteName(out, ASAtomGetString(key));
    if (!m_compact || StartsRegular(value)) out += ' ';
    WriteValueAt(out, value, 1);
    if (!m_compact) out += '\r';
}

void CosObjWriter::WriteDictEntryText(std::string& out, ASAtom key, std::string_view valueText) {
    CosWriteName(out, ASAtomGetString(key));
    if (!m_compact || (!valueText.empty() && IsRegular(static_cast<unsigned char>(valueText[0]))))
        out += ' ';
    out += valueText;
    if (!m_compact) out += '\r';
}

void CosObjWriter::WriteDict(std::string& out, CosObj dict, int depth) {
    const ASInt32 n = CosDictCount(dict);
    if (n == 0) {
        out += m_compact ? "<<>>" : "<< >>";
        return;
    }
    out += m_compact ? "<<" : "<<\r";
    for (ASInt32 i = 0; i < n; ++i) {
        ASAtom key = CosDictKeyAt(dict, i);
        CosObj value = CosDictValueAtRaw(dict, i);
        if (key == K_SMask || key == K_OCProperties)
            NoteName(key, CosObjGetType(value) == kCosName ? CosNameValue(value) : ASAtomNull);
        CosWriteName(out, ASAtomGetString(key));
        if (!m_compact || StartsRegular(value)) out += ' ';
        WriteValueAt(out, value, depth + 1);
        if (!m_compact) out += '\r';
    }
    out += ">>";
}

void CosObjWriter::WriteArray(std::string& out, CosObj array, int depth) {
    const ASInt32 n = CosArrayLength(array);
    out += '[';
    for (ASInt32 i = 0; i < n; ++i) {
        CosObj value = CosArrayGetRaw(array, i);
        if (i > 0) {
            if (!m_compact)
                out += ' ';
            else if (IsRegular(static_cast<unsigned char>(out.back())) && StartsRegular(value))
                out += ' ';
        }
        WriteValueAt(out, value, depth + 1);
    }
    out += ']';
}

void CosObjWriter::WriteString(std::string& out, CosObj str) {
    size_t len = 0;
    const char* bytes = CosStringValue(str, &len);
    std::span<const uint8_t> data(reinterpret_cast<const uint8_t*>(bytes), bytes ? len : 0);
    if (m_crypt) {
        m_scratch.assign(data.begin(), data.end());
        m_crypt->Encrypt(m_cryptNum, m_cryptGen, m_scratch);
        data = m_scratch;
    }
    if (CosStringIsHex(str))
        CosWriteHexString(out, data);
    else
        CosWriteLiteralString(out, data, m_crypt != nullptr);
}

void CosObjWriter::WriteStream(std::string& out, CosObj stream, int depth) {
    if (CosObjGetType(stream) != kCosStream) ASRaiseErr(ErrSysCos, kErrExpectedStream);
    std::span<const uint8_t> data = CosStreamEncodedData(stream);
    std::vector<uint8_t> encrypted;
    if (m_crypt) {
        encrypted.assign(data.begin(), data.end());
        m_crypt->Encrypt(m_cryptNum, m_cryptGen, encrypted);
        data = encrypted;
    }
    // Length always states the bytes written; an indirect Length is
    // replaced by a direct number (the old object is no longer referenced).
    CosObj dict = CosStreamDict(stream);
    bool keep = false;
    for (ASInt32 i = 0, n = CosDictCount(dict); i < n; ++i) {
        if (CosDictKeyAt(dict, i) != cosnames::Length) continue;
        CosObj v = CosDictValueAtRaw(dict, i);
        // A reference resolves to another object: it is always replaced.
        keep = CosResolve(v) == v && CosObjGetType(v) == kCosInteger &&
               CosInteger64Value(v) == static_cast<int64_t>(data.size());
        break;
    }
    if (!keep)
        CosDictPut(dict, cosnames::Length,
                   CosNewNumber(CosObjGetDoc(stream), false, static_cast<double>(data.size())));
    WriteDict(out, dict, depth);
    out += "\rstream\n";
    out.append(reinterpret_cast<const char*>(data.data()), data.size());
    if (!data.empty() && data.back() != '\r' && data.back() != '\n') out += '\r';
    out += "endstream";
}

// ---------------------------------------------------------------- file parts

void CosWriteTrailer(std::string& out, std::string_view dictText) {
    out += "trailer\r";
    out += dictText;
    out += '\r';
}

void CosWriteEnd(std::string& out, int64_t xrefOffset) {
    if (xrefOffset >= 0) {
        out += "startxref\r";
        CosWriteInteger(out, xrefOffset);
        out += "\r%%EOF\r";
    } else {
        out += "\r%%EOF\r";
    }
}

void CosXrefTable::AddSubsection(ASInt32 first, ASInt32 count) {
    if (first < 0 || count < 0) BadParm();
    m_subsections.emplace_back(first, count);
    (void)Runs();  // validates
}

std::vector<std::pair<ASInt32, ASInt32>> CosXrefTable::Runs() const {
    std::vector<std::pair<ASInt32, ASInt32>> sorted = m_subsections;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::pair<ASInt32, ASInt32>> runs;
    for (const auto& s : sorted) {
        if (!runs.empty()) {
            auto& cur = runs.back();
            if (s.first <= cur.first) BadParm();
            const int64_t curEnd = int64_t(cur.first) + cur.second;
            if (s.first <= curEnd) {
                // Merging adds the counts, overlap or not.
                const int64_t merged = int64_t(cur.second) + s.second;
                if (merged > INT32_MAX) BadParm();
                cur.second = static_cast<ASInt32>(merged);
                continue;
            }
        }
        runs.push_back(s);
    }
    return runs;
}

void CosXrefTable::AppendRunHeader(std::string& out, ASInt32 first, ASInt32 count) {
    CosWriteInteger(out, first);
    out += ' ';
    CosWriteInteger(out, count);
    out += " \r";
}

void CosXrefTable::AppendEntry(std::string& out, int64_t offset, ASUns16 gen) {
    char buf[32];
    if (offset < 0 || offset > 9999999999LL) BadParm();
    snprintf(buf, sizeof buf, "%010lld %05u n\r\n", static_cast<long long>(offset),
             static_cast<unsigned>(gen));
    out.append(buf, 20);
}
