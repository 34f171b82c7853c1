#include "pdfcore/CosRepair.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <vector>

#include "pdfcore/CosNames.h"
#include "pdfcore/CosObjStm.h"
#include "pdfcore/CosParser.h"
#include "pdfcore/CosXref.h"

namespace {

constexpr size_t kHeadWindow = 4096;

bool IsDigit(uint8_t c) { return c >= '0' && c <= '9'; }

// Reads the decimal run that ends just before `end`, going backwards.
// Returns its start, or SIZE_MAX when there is none (or it is too long).
size_t DigitsBefore(std::span<const uint8_t> f, size_t end, int64_t& value) {
    size_t b = end;
    while (b > 0 && IsDigit(f[b - 1]) && end - b < 10) --b;
    if (b == end || (b > 0 && IsDigit(f[b - 1]))) return SIZE_MAX;
    value = 0;
    for (size_t i = b; i < end; ++i) value = value * 10 + (f[i] - '0');
    return b;
}

CosObj CopyValue(CosDoc doc, CosObj raw) {
    if (CosRawType(raw) == kCosIndirect) return CosNewRef(doc, CosRefGetID(raw), CosRefGetGeneration(raw));
    return CosObjCopy(raw, doc, false);
}

}  // namespace

bool CosRepairer::HeadHas(size_t labelPos, std::string_view needle) const {
    size_t limit = std::min(m_file.size(), labelPos + kHeadWindow);
    size_t s = CosFindBytes(m_file, labelPos, limit, "stream");
    if (s != SIZE_MAX) limit = s;
    size_t e = CosFindBytes(m_file, labelPos, limit, "endobj");
    if (e != SIZE_MAX) limit = e;
    size_t at = CosFindBytes(m_file, labelPos, limit, needle);
    // "/XRef" must not match "/XRefStm", nor "/Catalog" a longer name.
    return at != SIZE_MAX && (at + needle.size() >= limit || !CosLexer::IsRegular(m_file[at + needle.size()]));
}

CosObj CosRepairer::ScanObjects(bool wantTrailer) {
    const std::span<const uint8_t> f = m_file;
    m_found.clear();
    // Every "obj" keyword preceded by "num gen" is a label.
    for (size_t p = CosFindBytes(f, m_header, f.size(), "obj"); p != SIZE_MAX;
         p = CosFindBytes(f, p + 3, f.size(), "obj")) {
        if (p + 3 < f.size() && CosLexer::IsRegular(f[p + 3])) continue;
        size_t q = p;
        if (q == 0 || !CosLexer::IsWhite(f[q - 1])) continue;
        while (q > 0 && CosLexer::IsWhite(f[q - 1])) --q;
        int64_t gen = 0, num = 0;
        size_t gb = DigitsBefore(f, q, gen);
        if (gb == SIZE_MAX || gb == 0 || !CosLexer::IsWhite(f[gb - 1])) continue;
        q = gb;
        while (q > 0 && CosLexer::IsWhite(f[q - 1])) --q;
        size_t nb = DigitsBefore(f, q, num);
        if (nb == SIZE_MAX || (nb > 0 && CosLexer::IsRegular(f[nb - 1]))) continue;
        if (num <= 0 || num >= kCosMaxObjNum || gen > 0xFFFF || nb < m_header) continue;
        m_found.push_back(Found{static_cast<ASInt32>(num), static_cast<ASInt32>(gen), nb});
    }
    if (m_found.empty()) ASRaiseParse(kErrCouldNotRepair);

    CosObjTable& table = CosDocXref(m_doc);
    size_t maxNum = 0;
    for (const Found& o : m_found) maxNum = std::max(maxNum, static_cast<size_t>(o.num));
    if (table.size() < maxNum + 1) table.resize(maxNum + 1);
    m_definedAt.clear();
    for (const Found& o : m_found) {
        m_definedAt[static_cast<size_t>(o.num)] = o.pos;
        CosXrefEntry& e = table[static_cast<size_t>(o.num)];
        if (e.obj) continue;  // loaded already: keep it
        e.kind = CosXrefEntry::kInFile;
        e.offset = o.pos - m_header;
        e.gen = static_cast<ASUns16>(o.gen);
        e.index = 0;
        e.loadFailed = false;
    }
    if (!wantTrailer) return nullptr;

    // Trailer candidates in file order: "trailer" dictionaries and the
    // dictionaries of cross-reference streams.
    std::vector<std::pair<size_t, CosObj>> cands;
    try {
        for (size_t p = CosFindBytes(f, m_header, f.size(), "trailer"); p != SIZE_MAX;
             p = CosFindBytes(f, p + 7, f.size(), "trailer")) {
            try {
                CosParser parser(m_doc, f, p + 7);
                CosObj d = parser.ReadObject();
                if (CosObjGetType(d) == kCosDict) cands.emplace_back(p, d);
                else CosObjDestroy(d);
            } catch (const CVellumError&) {
            }
        }
        for (const Found& o : m_found) {
            if (!HeadHas(o.pos, "/XRef")) continue;
            try {
                CosParser parser(m_doc, f, o.pos);
                ASInt32 n = 0, g = 0;
                if (!parser.ReadObjLabel(n, g)) continue;
                CosObj d = parser.ReadObject();
                if (CosObjGetType(d) == kCosDict && CosDictGetName(d, cosnames::Type) == cosnames::XRef)
                    cands.emplace_back(o.pos, d);
                else
                    CosObjDestroy(d);
            } catch (const CVellumError&) {
            }
        }
        std::stable_sort(cands.begin(), cands.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });

        CosObj trailer = CosNewDict(m_doc, false);
        const ASAtom keys[] = {cosnames::Root, cosnames::Info, cosnames::Encrypt, cosnames::ID};
        for (ASAtom key : keys) {
            for (auto it = cands.rbegin(); it != cands.rend(); ++it) {
                CosObj raw = CosParser::DictGetRaw(it->second, key);
                if (CosRawType(raw) == kCosNull) continue;
                if (key == cosnames::Root || key == cosnames::Info) {
                    // Only a reference to an object that exists is any use.
                    if (CosRawType(raw) != kCosIndirect) continue;
                    ASInt32 id = CosRefGetID(raw);
                    if (id <= 0 || DefinedAt(static_cast<size_t>(id)) == SIZE_MAX) continue;
                }
                CosDictPut(trailer, key, CopyValue(m_doc, raw));
                break;
            }
        }
        for (auto& c : cands) CosObjDestroy(c.second);
        cands.clear();
        CosDictPutInteger(trailer, cosnames::Size, static_cast<ASInt32>(table.size()));
        return trailer;
    } catch (...) {
        for (auto& c : cands) CosObjDestroy(c.second);
        throw;
    }
}

void CosRepairer::AddObjectStreamMembers(CosObjStmCache& cache) {
    CosObjTable& table = CosDocXref(m_doc);
    for (const Found& o : m_found) {
        size_t num = static_cast<size_t>(o.num);
        if (DefinedAt(num) != o.pos) continue;  // superseded
        if (!HeadHas(o.pos, "/ObjStm")) continue;
        const CosObjStmCache::Stream* s = nullptr;
        try {
            s = &cache.Get(m_doc, o.num);
        } catch (const CVellumError&) {
            continue;
        }
        for (size_t i = 0; i < s->members.size(); ++i) {
            size_t m = static_cast<size_t>(s->members[i].first);
            if (m == num) continue;  // a stream cannot hold itself
            if (m >= table.size()) table.resize(m + 1);
            // A later direct definition overrides the stream's copy.
            if (DefinedAt(m) != SIZE_MAX && DefinedAt(m) > o.pos) continue;
            CosXrefEntry& e = table[m];
            if (e.obj) continue;
            e.kind = CosXrefEntry::kInObjStm;
            e.offset = num;
            e.index = static_cast<ASUns32>(i);
            e.gen = 0;
            e.loadFailed = false;
            m_definedAt[m] = o.pos;
        }
    }
}

void CosRepairer::EnsureRoot(CosObj trailer) {
    if (CosObjGetType(CosDictGet(trailer, cosnames::Root)) == kCosDict) return;
    auto isCatalog = [](CosObj o) {
        return CosObjGetType(o) == kCosDict && CosDictGetName(o, cosnames::Type) == cosnames::Catalog;
    };
    for (auto it = m_found.rbegin(); it != m_found.rend(); ++it) {
        if (!HeadHas(it->pos, "/Catalog")) continue;
        if (DefinedAt(static_cast<size_t>(it->num)) != it->pos) continue;
        CosObj o = CosDocGetObjByID(m_doc, it->num);
        if (isCatalog(o)) {
            CosDictPut(trailer, cosnames::Root, o);
            return;
        }
    }
    // The catalog may sit inside an object stream.
    bool hasPages = false;
    std::vector<size_t> packed;
    CosDocXref(m_doc).ForEach([&packed](size_t n, const CosXrefEntry& e) {
        if (n > 0 && e.kind == CosXrefEntry::kInObjStm) packed.push_back(n);
    });
    for (auto it = packed.rbegin(); it != packed.rend(); ++it) {
        const size_t n = *it;
        CosObj o = CosDocGetObjByID(m_doc, static_cast<ASInt32>(n));
        if (isCatalog(o)) {
            CosDictPut(trailer, cosnames::Root, o);
            return;
        }
        ASAtom type = CosObjGetType(o) == kCosDict ? CosDictGetName(o, cosnames::Type) : ASAtomNull;
        hasPages = hasPages || type == cosnames::Page || type == cosnames::Pages;
    }
    for (const Found& o : m_found)
        hasPages = hasPages || HeadHas(o.pos, "/Pages") || HeadHas(o.pos, "/Page");
    // No catalog at all, but pages: a new catalog over the page tree found
    // among the objects.
    if (!hasPages) ASRaiseParse(kErrCouldNotRepair);
    CosObj catalog = CosNewDict(m_doc, true, 2);
    CosDictPutName(catalog, cosnames::Type, false, cosnames::Catalog);
    CosObj pages = CosFindPageTreeRoot(m_doc, catalog);
    if (CosObjIsNull(pages) || CosDictGetName(pages, cosnames::Type) == cosnames::Catalog) {
        // No page after all, or a catalog the labels did not show.
        CosObjDestroy(catalog);
        if (CosObjIsNull(pages)) ASRaiseParse(kErrCouldNotRepair);
        CosDictPut(trailer, cosnames::Root, pages);
        return;
    }
    CosDictPut(catalog, cosnames::Pages, pages);
    CosDictPut(trailer, cosnames::Root, catalog);
}

namespace {

bool IsPageNode(CosObj node) {
    ASAtom type = CosDictGetName(node, cosnames::Type);
    if (type == cosnames::Page) return true;
    if (type == cosnames::Pages) return false;
    return CosObjGetType(CosDictGet(node, cosnames::Kids)) != kCosArray;
}

bool IsCatalogWithTree(CosObj obj) {
    CosObj pages = CosDictGet(obj, cosnames::Pages);
    return CosObjGetType(obj) == kCosDict && CosObjGetType(pages) == kCosDict && !IsPageNode(pages);
}

}  // namespace

CosObj CosFindPageTreeRoot(CosDoc doc, CosObj catalog) {
    CosObj best = CosNewNull();
    ASInt32 bestCount = -1;
    CosObj otherCatalog = CosNewNull();
    std::vector<CosObj> nodes;
    std::vector<CosObj> pages;
    std::set<CosObj> listed;
    for (ASInt32 id = CosDocNextObjID(doc, 0); id < CosDocGetObjTableSize(doc); id = CosDocNextObjID(doc, id)) {
        CosObj obj = CosDocGetObjByID(doc, id);
        if (CosObjGetType(obj) != kCosDict) continue;
        ASAtom type = CosDictGetName(obj, cosnames::Type);
        if (type == cosnames::Catalog) {
            if (obj != catalog && CosObjIsNull(otherCatalog) && IsCatalogWithTree(obj)) otherCatalog = obj;
        } else if (type == cosnames::Pages) {
            nodes.push_back(obj);
            CosObj kids = CosDictGet(obj, cosnames::Kids);
            for (ASInt32 i = 0, k = CosObjGetType(kids) == kCosArray ? CosArrayLength(kids) : 0; i < k; ++i)
                listed.insert(CosArrayGet(kids, i));
        } else if (type == cosnames::Page) {
            pages.push_back(obj);
        }
    }
    if (!CosObjIsNull(otherCatalog)) return otherCatalog;
    for (CosObj node : nodes) {
        if (listed.count(node)) continue;
        ASInt32 count = CosDictGetInt(node, cosnames::Count, 0);
        if (count > bestCount) {
            best = node;
            bestCount = count;
        }
    }
    if (!CosObjIsNull(best) || pages.empty()) return best;
    CosObj root = CosNewDict(doc, true, 3);
    CosDictPutName(root, cosnames::Type, false, cosnames::Pages);
    CosObj kids = CosNewArray(doc, false, static_cast<ASInt32>(pages.size()));
    for (CosObj page : pages) CosArrayAppend(kids, page);
    CosDictPut(root, cosnames::Kids, kids);
    CosDictPutInteger(root, cosnames::Count, static_cast<ASInt32>(pages.size()));
    return root;
}
