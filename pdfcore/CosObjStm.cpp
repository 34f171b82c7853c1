#include "pdfcore/CosObjStm.h"

#include "pdfcore/CosNames.h"
#include "pdfcore/CosParser.h"
#include "pdfcore/CosXref.h"

namespace {

constexpr int kMaxExtends = 64;

struct InProgress {
    std::set<ASInt32>& set;
    ASInt32 num;
    ~InProgress() { set.erase(num); }
};

}  // namespace

const CosObjStmCache::Stream& CosObjStmCache::Get(CosDoc doc, ASInt32 stmNum) {
    auto it = m_cache.find(stmNum);
    if (it != m_cache.end()) return *it->second;
    if (!m_inProgress.insert(stmNum).second) ASRaiseParse(kErrReadObject);
    InProgress guard{m_inProgress, stmNum};

    // An object stream is never itself stored inside an object stream.
    const CosXrefEntry* entry = stmNum > 0 ? CosDocXref(doc).Find(static_cast<size_t>(stmNum)) : nullptr;
    if (!entry || entry->kind == CosXrefEntry::kInObjStm) ASRaiseParse(kErrReadObject);
    CosObj stm = CosDocGetObjByID(doc, stmNum);
    if (CosObjGetType(stm) != kCosStream) ASRaiseParse(kErrReadObject);
    CosObj dict = CosStreamDict(stm);
    ASAtom type = CosDictGetName(dict, cosnames::Type);
    if (type != ASAtomNull && type != cosnames::ObjStm) ASRaiseParse(kErrReadObject);
    ASInt32 n = CosDictGetInt(dict, cosnames::N, -1);
    ASInt32 first = CosDictGetInt(dict, cosnames::First, -1);
    if (n < 0 || first < 0) ASRaiseParse(kErrReadObject);

    auto s = std::make_unique<Stream>();
    if (!CosDecodeStructureStream(dict, CosStreamEncodedData(stm), s->data))
        s->data = CosStreamDecodedData(stm);
    if (static_cast<size_t>(first) > s->data.size()) ASRaiseParse(kErrReadObject);
    s->first = static_cast<size_t>(first);
    std::span<const uint8_t> head(s->data.data(), s->first);
    CosLexer lex(head);
    for (ASInt32 i = 0; i < n; ++i) {
        CosToken a = lex.Next(), b = lex.Next();
        if (a.type != CosTokType::Integer || b.type != CosTokType::Integer) break;
        if (a.ival <= 0 || a.ival >= kCosMaxObjNum || b.ival < 0 ||
            static_cast<uint64_t>(b.ival) >= s->data.size() - s->first)
            continue;
        s->members.emplace_back(static_cast<ASInt32>(a.ival), static_cast<size_t>(b.ival));
    }
    CosObj ext = CosParser::DictGetRaw(dict, cosnames::Extends);
    if (CosRawType(ext) == kCosIndirect) s->extends = CosRefGetID(ext);
    Stream& ref = *s;
    m_cache.emplace(stmNum, std::move(s));
    return ref;
}

CosObj CosObjStmCache::Load(CosDoc doc, ASInt32 stmNum, ASUns32 index, ASInt32 objNum) {
    std::set<ASInt32> seen;
    for (int hop = 0; hop < kMaxExtends && stmNum > 0; ++hop) {
        if (!seen.insert(stmNum).second) break;  // Extends loops back
        const Stream& s = Get(doc, stmNum);
        size_t at = SIZE_MAX;
        if (index < s.members.size() && s.members[index].first == objNum) {
            at = s.members[index].second;
        } else {
            for (const auto& m : s.members)
                if (m.first == objNum) at = m.second;  // the last definition wins
        }
        if (at != SIZE_MAX) {
            // Objects inside an object stream are never encrypted one by one,
            // and cannot be streams.
            CosParser parser(doc, s.data, s.first + at);
            return parser.ReadObject();
        }
        stmNum = s.extends;
    }
    return CosNewNull();
}
