#include "fonts/FontDict.h"

#include <algorithm>

#include "content/ContentTokenizer.h"
#include "fonts/StandardEncodings.h"

namespace fonts {

namespace {

const ASAtom K_Subtype = ASAtomFromString("Subtype");
const ASAtom K_Type0 = ASAtomFromString("Type0");
const ASAtom K_Type1 = ASAtomFromString("Type1");
const ASAtom K_MMType1 = ASAtomFromString("MMType1");
const ASAtom K_TrueType = ASAtomFromString("TrueType");
const ASAtom K_Type3 = ASAtomFromString("Type3");
const ASAtom K_CIDFontType0 = ASAtomFromString("CIDFontType0");
const ASAtom K_CIDFontType2 = ASAtomFromString("CIDFontType2");
const ASAtom K_Type1C = ASAtomFromString("Type1C");
const ASAtom K_CIDFontType0C = ASAtomFromString("CIDFontType0C");
const ASAtom K_OpenType = ASAtomFromString("OpenType");
const ASAtom K_BaseFont = ASAtomFromString("BaseFont");
const ASAtom K_FontDescriptor = ASAtomFromString("FontDescriptor");
const ASAtom K_DescendantFonts = ASAtomFromString("DescendantFonts");
const ASAtom K_FontFile = ASAtomFromString("FontFile");
const ASAtom K_FontFile2 = ASAtomFromString("FontFile2");
const ASAtom K_FontFile3 = ASAtomFromString("FontFile3");
const ASAtom K_Flags = ASAtomFromString("Flags");
const ASAtom K_Encoding = ASAtomFromString("Encoding");
const ASAtom K_BaseEncoding = ASAtomFromString("BaseEncoding");
const ASAtom K_Differences = ASAtomFromString("Differences");
const ASAtom K_CIDToGIDMap = ASAtomFromString("CIDToGIDMap");
const ASAtom K_Identity = ASAtomFromString("Identity");
const ASAtom K_IdentityH = ASAtomFromString("Identity-H");
const ASAtom K_IdentityV = ASAtomFromString("Identity-V");
const ASAtom K_StandardEncoding = ASAtomFromString("StandardEncoding");
const ASAtom K_WinAnsiEncoding = ASAtomFromString("WinAnsiEncoding");
const ASAtom K_MacRomanEncoding = ASAtomFromString("MacRomanEncoding");
const ASAtom K_MacExpertEncoding = ASAtomFromString("MacExpertEncoding");

bool IsDict(CosObj o) { return CosObjGetType(o) == kCosDict; }

// A CMap may hold up to this many mappings; more is taken as hostile.
constexpr size_t kMaxCMapRanges = 1 << 20;

uint32_t BigEndian(const std::string& bytes) {
    uint32_t v = 0;
    for (char c : bytes) v = v << 8 | static_cast<uint8_t>(c);
    return v;
}

}  // namespace

bool HasSubsetTag(const std::string& name) {
    if (name.size() < 7 || name[6] != '+') return false;
    return std::all_of(name.begin(), name.begin() + 6, [](char c) { return c >= 'A' && c <= 'Z'; });
}

FontInfo ReadFontInfo(CosObj font) {
    FontInfo info;
    info.font = font;
    info.cidFont = CosNewNull();
    info.descriptor = CosNewNull();
    info.program = CosNewNull();
    if (!IsDict(font)) return info;
    ASAtom subtype = CosDictGetName(font, K_Subtype);
    CosObj described = font;
    if (subtype == K_Type0) {
        info.composite = true;
        CosObj kids = CosDictGet(font, K_DescendantFonts);
        CosObj cid = CosObjGetType(kids) == kCosArray ? CosArrayGet(kids, 0) : CosNewNull();
        if (!IsDict(cid)) return info;
        info.cidFont = cid;
        described = cid;
        subtype = CosDictGetName(cid, K_Subtype);
    }
    std::string name = ASAtomGetString(CosDictGetName(described, K_BaseFont));
    if (HasSubsetTag(name)) {
        info.tag = name.substr(0, 6);
        name = name.substr(7);
    }
    info.baseName = name;
    if (subtype == K_Type3) {
        info.kind = FontKind::Type3;
        return info;
    }
    CosObj desc = CosDictGet(described, K_FontDescriptor);
    if (!IsDict(desc)) {
        info.kind = FontKind::NotEmbedded;
        return info;
    }
    info.descriptor = desc;
    info.symbolic = (CosDictGetInt(desc, K_Flags, 0) & 4) != 0;
    for (ASAtom key : {K_FontFile, K_FontFile2, K_FontFile3}) {
        CosObj p = CosDictGet(desc, key);
        if (CosObjGetType(p) != kCosStream) continue;
        info.program = p;
        info.programKey = key;
        break;
    }
    if (CosObjIsNull(info.program)) {
        info.kind = FontKind::NotEmbedded;
        return info;
    }
    if (info.programKey == K_FontFile) {
        if (subtype == K_Type1 || subtype == K_MMType1) info.kind = FontKind::Type1;
    } else if (info.programKey == K_FontFile2) {
        if (subtype == K_TrueType || subtype == K_CIDFontType2) info.kind = FontKind::TrueType;
    } else {
        ASAtom sub = CosDictGetName(info.program, K_Subtype);
        if (sub == K_Type1C && (subtype == K_Type1 || subtype == K_MMType1)) info.kind = FontKind::Type1C;
        else if (sub == K_CIDFontType0C && subtype == K_CIDFontType0) info.kind = FontKind::CidType0C;
        else if (sub == K_OpenType) info.kind = FontKind::OpenType;
    }
    return info;
}

const char* const* PredefinedEncoding(ASAtom name) {
    if (name == K_StandardEncoding) return kStandardEncoding;
    if (name == K_WinAnsiEncoding) return kWinAnsiEncoding;
    if (name == K_MacRomanEncoding) return kMacRomanEncoding;
    if (name == K_MacExpertEncoding) return kMacExpertEncoding;
    return nullptr;
}

SimpleEncoding ReadSimpleEncoding(CosObj font) {
    SimpleEncoding enc;
    CosObj e = CosDictGet(font, K_Encoding);
    const char* const* base = nullptr;
    CosObj differences = CosNewNull();
    if (CosObjGetType(e) == kCosName) {
        base = PredefinedEncoding(CosNameValue(e));
    } else if (IsDict(e)) {
        base = PredefinedEncoding(CosDictGetName(e, K_BaseEncoding));
        differences = CosDictGet(e, K_Differences);
    }
    if (base) {
        enc.hasBase = true;
        for (int c = 0; c < 256; ++c)
            if (base[c]) enc.names[static_cast<size_t>(c)] = base[c];
    }
    if (CosObjGetType(differences) == kCosArray) {
        int code = -1;
        ASInt32 n = CosArrayLength(differences);
        for (ASInt32 i = 0; i < n; ++i) {
            CosObj v = CosArrayGet(differences, i);
            CosType t = CosObjGetType(v);
            if (t == kCosInteger || t == kCosFixed) {
                code = CosIntegerValue(v);
            } else if (t == kCosName) {
                if (code >= 0 && code < 256) {
                    enc.names[static_cast<size_t>(code)] = ASAtomGetString(CosNameValue(v));
                    enc.hasDifferences = true;
                }
                if (code >= 0) ++code;
            }
        }
    }
    return enc;
}

bool CidMap::Read(CosObj encoding) {
    m_identity = false;
    m_ranges.clear();
    if (CosObjGetType(encoding) == kCosName) {
        ASAtom n = CosNameValue(encoding);
        m_identity = n == K_IdentityH || n == K_IdentityV;
        return m_identity;
    }
    if (CosObjGetType(encoding) != kCosStream) return false;
    ASAtom use = CosDictGetName(encoding, ASAtomFromString("UseCMap"));
    if (use != ASAtomNull && use != K_IdentityH && use != K_IdentityV) return false;
    bool identityBase = use != ASAtomNull;
    std::vector<uint8_t> bytes;
    try {
        bytes = CosStreamDecodedData(encoding, CosDecodeOptions{.maxOutput = 64u << 20, .strict = true});
    } catch (const CVellumError&) {
        return false;
    }
    ContentTokenizer tok(bytes);
    ContentToken t;
    std::string_view op;
    std::vector<ContentToken> operands;
    for (;;) {
        auto r = tok.Next(t, op);
        if (r == ContentTokenizer::Result::End) break;
        if (r == ContentTokenizer::Result::Operand) {
            if (operands.size() < 3 * 100 + 8) operands.push_back(std::move(t));
            continue;
        }
        if (op == "usecmap") {
            if (operands.empty() || !(operands.back().IsName("Identity-H") || operands.back().IsName("Identity-V")))
                return false;
            identityBase = true;
        } else if (op == "endcidrange" || op == "endcidchar") {
            const size_t step = op == "endcidrange" ? 3 : 2;
            for (size_t i = 0; i + step <= operands.size(); i += step) {
                const ContentToken& lo = operands[i];
                const ContentToken& hi = operands[i + step - 2];
                const ContentToken& cid = operands[i + step - 1];
                if (!lo.IsString() || !hi.IsString() || !cid.IsNumber() || lo.text.empty() || lo.text.size() > 4 ||
                    hi.text.size() != lo.text.size() || cid.number < 0 || cid.number > 0xFFFFFF)
                    return false;
                uint32_t l = BigEndian(lo.text), h = BigEndian(hi.text);
                if (h < l) continue;
                if (m_ranges.size() >= kMaxCMapRanges) return false;
                m_ranges.push_back({l, h, static_cast<uint32_t>(cid.number)});
            }
        }
        // notdef ranges need no reading: unmapped codes draw CID 0, which
        // is always kept.
        operands.clear();
    }
    std::stable_sort(m_ranges.begin(), m_ranges.end(), [](const Range& a, const Range& b) { return a.low < b.low; });
    if (m_ranges.empty()) m_identity = identityBase;
    else if (identityBase) m_ranges.insert(m_ranges.begin(), Range{0, 0xFFFF, 0});  // later ranges override
    return m_identity || !m_ranges.empty();
}

std::optional<uint32_t> CidMap::Cid(uint32_t code) const {
    if (m_identity) return code;
    // The last range that holds the code wins, as a later definition in
    // the CMap overrides an earlier one.
    std::optional<uint32_t> cid;
    for (const Range& r : m_ranges) {
        if (r.low > code) break;
        if (code <= r.high) cid = r.cid + (code - r.low);
    }
    return cid;
}

bool CidToGid::Read(CosObj cidFont) {
    m_identity = true;
    m_map.clear();
    CosObj m = CosDictGet(cidFont, K_CIDToGIDMap);
    if (CosObjGetType(m) != kCosStream) return true;  // Identity by name, or absent
    try {
        m_map = CosStreamDecodedData(m, CosDecodeOptions{.maxOutput = 2u * 65536u, .strict = true});
    } catch (const CVellumError&) {
        return false;
    }
    m_identity = false;
    return true;
}

uint32_t CidToGid::Gid(uint32_t cid) const {
    if (m_identity) return cid;
    size_t at = static_cast<size_t>(cid) * 2;
    if (cid > 0xFFFF || at + 1 >= m_map.size()) return 0;
    return static_cast<uint32_t>(m_map[at]) << 8 | m_map[at + 1];
}

void StoreFlateProgram(CosObj stream, const std::vector<uint8_t>& encoded) {
    CosDictPutName(stream, ASAtomFromString("Filter"), false, ASAtomFromString("FlateDecode"));
    CosDictRemove(stream, ASAtomFromString("DecodeParms"));
    CosStreamSetEncodedData(stream, encoded);
}

void PutType1Lengths(CosObj streamDict, const Type1Program& program) {
    CosDictPutInteger(streamDict, ASAtomFromString("Length1"), static_cast<ASInt32>(program.length1));
    CosDictPutInteger(streamDict, ASAtomFromString("Length2"), static_cast<ASInt32>(program.length2));
    CosDictPutInteger(streamDict, ASAtomFromString("Length3"), static_cast<ASInt32>(program.length3));
}

}  // namespace fonts
