#include "pdfcore/CosParser.h"

#include <algorithm>
#include <cstring>

#include "pdfcore/CosNames.h"
#include "pdfcore/CosObjImpl.h"

namespace {

// Frees a partly built direct object when parsing fails half-way.
class PartialGuard {
public:
    explicit PartialGuard(CosObj obj) : m_obj(obj) {}
    ~PartialGuard() {
        if (m_obj) CosObjDestroy(m_obj);
    }
    CosObj Get() const { return m_obj; }
    CosObj Release() {
        CosObj o = m_obj;
        m_obj = nullptr;
        return o;
    }
    PartialGuard(const PartialGuard&) = delete;
    PartialGuard& operator=(const PartialGuard&) = delete;

private:
    CosObj m_obj;
};

// Puts `value` into `container`; frees it when that fails, so nothing leaks.
template <class Put>
void AdoptInto(CosObj container, CosObj value, Put put) {
    try {
        put(container, value);
    } catch (...) {
        CosObjDestroy(value);
        throw;
    }
}

// Keywords that can never appear inside an object: meeting one means the
// container was never closed.
bool IsStructureKeyword(const std::string& w) {
    return w == "endobj" || w == "obj" || w == "stream" || w == "endstream" || w == "xref" ||
           w == "trailer" || w == "startxref";
}

}  // namespace

CosType CosRawType(CosObj obj) { return obj ? static_cast<CosType>(obj->type) : kCosNull; }

size_t CosFindBytes(std::span<const uint8_t> data, size_t from, size_t to, std::string_view needle) {
    if (to > data.size()) to = data.size();
    if (needle.empty() || from >= to || to - from < needle.size()) return SIZE_MAX;
    const uint8_t* begin = data.data() + from;
    const uint8_t* end = data.data() + to;
    const uint8_t* n = reinterpret_cast<const uint8_t*>(needle.data());
    const uint8_t* it = std::search(begin, end, n, n + needle.size());
    return it == end ? SIZE_MAX : static_cast<size_t>(it - data.data());
}

size_t CosFindBytesBackward(std::span<const uint8_t> data, size_t from, size_t to,
                            std::string_view needle) {
    if (to > data.size()) to = data.size();
    if (needle.empty() || from >= to || to - from < needle.size()) return SIZE_MAX;
    for (size_t p = to - needle.size() + 1; p-- > from;) {
        if (std::memcmp(data.data() + p, needle.data(), needle.size()) == 0) return p;
    }
    return SIZE_MAX;
}

CosObj CosParser::DictGetRaw(CosObj dict, ASAtom key) {
    ASInt32 n = CosDictCount(dict);
    for (ASInt32 i = 0; i < n; ++i)
        if (CosDictKeyAt(dict, i) == key) return CosDictValueAtRaw(dict, i);
    return CosNewNull();
}

CosObj CosParser::ReadObject() { return ReadValue(0); }

CosObj CosParser::ReadValue(int depth) {
    CosToken tok = m_lex.Next();
    return MakeFromToken(tok, depth);
}

CosObj CosParser::MakeString(std::string& bytes, bool hex) {
    CosObj s;
    if (m_crypt && !bytes.empty()) {
        std::vector<uint8_t> buf(bytes.begin(), bytes.end());
        m_crypt->Decrypt(static_cast<ASUns32>(m_cryptNum), m_cryptGen, buf);
        s = CosNewString(m_doc, false, reinterpret_cast<const char*>(buf.data()), buf.size());
    } else {
        s = CosNewString(m_doc, false, bytes.data(), bytes.size());
    }
    if (hex) CosStringSetHex(s, true);
    return s;
}

CosObj CosParser::MakeFromToken(CosToken& tok, int depth) {
    switch (tok.type) {
    case CosTokType::Integer: {
        // "num gen R" is a reference; anything else leaves the integer alone.
        size_t save = m_lex.Pos();
        CosToken t2 = m_lex.Next();
        if (t2.type == CosTokType::Integer) {
            CosToken t3 = m_lex.Next();
            if (t3.IsKeyword("R")) {
                if (tok.ival <= 0 || tok.ival >= 0x7FFFFFFF || t2.ival < 0 || t2.ival > 0xFFFF)
                    return CosNewNull();  // a reference that can name no object
                return CosNewRef(m_doc, static_cast<ASInt32>(tok.ival), static_cast<ASUns16>(t2.ival));
            }
        }
        m_lex.Seek(save);
        return CosNewNumber(m_doc, false, tok.rval);
    }
    case CosTokType::Real:
        return CosNewNumber(m_doc, false, tok.rval);
    case CosTokType::Name:
        return CosNewName(m_doc, false, ASAtomFromString(tok.text));
    case CosTokType::String:
        return MakeString(tok.text, false);
    case CosTokType::HexString:
        return MakeString(tok.text, true);
    case CosTokType::ArrayOpen:
        if (depth >= kMaxDepth) ASRaiseParse(kErrTooComplex);
        return ReadArray(depth + 1);
    case CosTokType::DictOpen:
        if (depth >= kMaxDepth) ASRaiseParse(kErrTooComplex);
        return ReadDict(depth + 1);
    case CosTokType::Keyword:
        if (tok.text == "true") return CosNewBoolean(m_doc, false, true);
        if (tok.text == "false") return CosNewBoolean(m_doc, false, false);
        if (tok.text == "null") return CosNewNull();
        ASRaiseParse(kErrUnrecognizedToken);
    case CosTokType::Eof:
        ASRaiseParse(kErrReadObject);
    default:
        ASRaiseParse(kErrUnexpectedToken);
    }
}

CosObj CosParser::ReadArray(int depth) {
    PartialGuard guard(CosNewArray(m_doc, false));
    while (true) {
        CosToken tok = m_lex.Next();
        if (tok.type == CosTokType::ArrayClose) break;
        if (tok.type == CosTokType::Eof) ASRaiseParse(kErrEndOfArray);
        if (tok.type == CosTokType::DictClose) ASRaiseParse(kErrEndOfArray);
        if (tok.type == CosTokType::Keyword && tok.text != "true" && tok.text != "false" &&
            tok.text != "null") {
            if (IsStructureKeyword(tok.text)) ASRaiseParse(kErrEndOfArray);
            continue;  // junk inside an array is dropped, as viewers do
        }
        if (tok.type == CosTokType::BraceOpen || tok.type == CosTokType::BraceClose) continue;
        CosObj v = MakeFromToken(tok, depth);
        AdoptInto(guard.Get(), v, [&](CosObj c, CosObj val) { CosArrayAppend(c, val); });
    }
    return guard.Release();
}

CosObj CosParser::ReadDict(int depth) {
    PartialGuard guard(CosNewDict(m_doc, false));
    while (true) {
        CosToken tok = m_lex.Next();
        if (tok.type == CosTokType::DictClose) break;
        if (tok.type == CosTokType::Eof) ASRaiseParse(kErrEndOfDict);
        if (tok.type == CosTokType::Keyword && IsStructureKeyword(tok.text)) ASRaiseParse(kErrEndOfDict);
        if (tok.type != CosTokType::Name) continue;  // a key must be a name: skip junk
        ASAtom key = ASAtomFromString(tok.text);
        CosToken vt = m_lex.Next();
        if (vt.type == CosTokType::DictClose) break;  // key without a value
        if (vt.type == CosTokType::Eof) ASRaiseParse(kErrEndOfDict);
        if (vt.type == CosTokType::Keyword && IsStructureKeyword(vt.text)) ASRaiseParse(kErrEndOfDict);
        CosObj v = MakeFromToken(vt, depth);
        // A null value is the same as an absent key.  References are not
        // resolved here: the table may not be read yet (trailers) and
        // resolving while loading breaks on reference cycles.
        if (v == CosNewNull()) continue;
        AdoptInto(guard.Get(), v, [&](CosObj c, CosObj val) { CosDictPut(c, key, val); });
    }
    return guard.Release();
}

bool CosParser::ReadObjLabel(ASInt32& num, ASInt32& gen) {
    size_t save = m_lex.Pos();
    CosToken a = m_lex.Next();
    if (a.type == CosTokType::Integer && a.ival > 0 && a.ival < 0x7FFFFFFF) {
        CosToken b = m_lex.Next();
        if (b.type == CosTokType::Integer && b.ival >= 0 && b.ival <= 0xFFFF) {
            CosToken c = m_lex.Next();
            if (c.IsKeyword("obj")) {
                num = static_cast<ASInt32>(a.ival);
                gen = static_cast<ASInt32>(b.ival);
                return true;
            }
        }
    }
    m_lex.Seek(save);
    return false;
}

void CosParser::FindStreamExtent(std::span<const uint8_t> data, size_t dataStart, int64_t declared,
                                 size_t& outLength) {
    const size_t size = data.size();
    if (declared >= 0 && static_cast<uint64_t>(declared) <= size - dataStart) {
        // Trust the Length when "endstream" follows it (after white space).
        size_t p = dataStart + static_cast<size_t>(declared);
        while (p < size && CosLexer::IsWhite(data[p])) ++p;
        if (size - p >= 9 && std::memcmp(data.data() + p, "endstream", 9) == 0) {
            outLength = static_cast<size_t>(declared);
            return;
        }
    }
    size_t found = CosFindBytes(data, dataStart, size, "endstream");
    if (found != SIZE_MAX) {
        size_t end = found;
        // The end of line before "endstream" is not part of the data.
        if (end > dataStart && data[end - 1] == '\n') --end;
        if (end > dataStart && data[end - 1] == '\r') --end;
        outLength = end - dataStart;
        return;
    }
    if (declared >= 0) {
        if (static_cast<uint64_t>(declared) > size - dataStart) ASRaiseParse(kErrStreamTooShort);
        outLength = static_cast<size_t>(declared);  // a cut file: keep what the Length says
        return;
    }
    ASRaiseParse(kErrMissingEndstream);
}

CosObj CosParser::ReadStreamBody(CosObj dict, const StreamOptions& opts) {
    std::span<const uint8_t> data = m_lex.Data();
    size_t p = m_lex.Pos();
    // After "stream": an end of line (CR LF or LF; a lone CR is tolerated,
    // as are blanks before it).
    while (p < data.size() && (data[p] == ' ' || data[p] == '\t')) ++p;
    if (p < data.size() && data[p] == '\r') ++p;
    if (p < data.size() && data[p] == '\n') ++p;
    int64_t declared = -1;
    CosObj len = DictGetRaw(dict, cosnames::Length);
    CosType lt = CosRawType(len);
    if (lt == kCosInteger || lt == kCosFixed) {
        declared = CosInteger64Value(len);
    } else if (lt == kCosIndirect && opts.resolveLength) {
        CosObj r = CosResolve(len);
        CosType rt = CosObjGetType(r);
        if (rt == kCosInteger || rt == kCosFixed) declared = CosInteger64Value(r);
    }
    size_t length = 0;
    FindStreamExtent(data, p, declared, length);
    size_t after = p + length;
    m_lex.Seek(after);
    CosToken t = m_lex.Peek();
    if (t.IsKeyword("endstream")) m_lex.Next();
    // Cross-reference streams are never encrypted.
    bool encrypted = opts.encrypted && CosDictGetName(dict, cosnames::Type) != cosnames::XRef;
    return CosNewStreamFromFile(m_doc, dict, p, length, encrypted);
}

CosObj CosParser::ReadIndirect(ASInt32& num, ASInt32& gen, const StreamOptions& opts) {
    if (!ReadObjLabel(num, gen)) ASRaiseParse(kErrBadObjLabel);
    CosObj obj = ReadObject();
    if (CosObjGetType(obj) == kCosDict && opts.allowStreams) {
        // Looking past the dictionary may fail too (an unterminated string).
        PartialGuard guard(obj);
        CosToken t = m_lex.Peek();
        if (t.IsKeyword("stream")) {
            m_lex.Next();
            CosObj s = ReadStreamBody(obj, opts);
            guard.Release();
            return s;
        }
        guard.Release();
    }
    return obj;
}
