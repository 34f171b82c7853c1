// Full saves: which objects are written, their new numbers and order, and
// the file around them (header, binary comment, cross-reference table,
// trailer, end marker), written atomically through a temporary file.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "filters/Filters.h"
#include "pdfcore/CosCompact.h"
#include "pdfcore/CosInfo.h"
#include "pdfcore/CosInternal.h"
#include "pdfcore/CosNames.h"
#include "pdfcore/CosWriter.h"
#include "pdfcore/security/MD5.h"

namespace {

const ASAtom K_Version = ASAtomFromString("Version");
const ASAtom K_R = ASAtomFromString("R");
const ASAtom K_V = ASAtomFromString("V");

constexpr int kMaxDepth = 1000;

[[noreturn]] void BadParm() { ASRaiseErr(ErrSysGeneral, kErrBadParm); }

}  // namespace

// ================================================================ save modes

ASUns32 CosSaveModeFromFlags(ASUns32 flags, bool* linearize) {
    ASUns32 mode = 0;
    if (flags & 0x1) mode = (flags & 0x2) ? 3 : 2;
    if ((flags & 0x1) && (flags & 0x8)) mode |= kCosSaveModeForceFull;
    if (flags & 0x1000) mode |= kCosSaveModeCompact;
    if (flags & 0x2000) mode |= kCosSaveModeObjectStreams | kCosSaveModeCompact;
    if (linearize) *linearize = (flags & 0x4) != 0;
    return mode;
}

// ================================================================ the plan

namespace {

// Which objects a full save writes and in which order.  Object i of
// `order` becomes number i + 1, generation 0.
class SavePlan {
public:
    explicit SavePlan(CosDoc doc) : m_doc(doc) {
        m_newNum.assign(static_cast<size_t>(CosDocGetObjTableSize(doc)) + 1, 0);
        m_stop.assign(m_newNum.size(), 0);
    }

    void Build(CosObj root, CosObj info, CosObj encrypt, CosObj id);

    std::vector<CosObj> order;
    // Positions in `order` where a group begins: the catalog with the page
    // tree, each page with what it is the first to use, then the rest.
    std::vector<size_t> groupStarts;
    const std::vector<ASInt32>& NewNumbers() const { return m_newNum; }
    ASInt32 NewNumber(CosObj obj) const {
        ASInt32 id = CosObjGetID(obj);
        return id > 0 && static_cast<size_t>(id) < m_newNum.size() ? m_newNum[size_t(id)] : 0;
    }
    // The number of the object at position i of `order` (i + 1 unless
    // renumbered below).
    ASInt32 NumberAt(size_t i) const { return m_newNum[size_t(CosObjGetID(order[i]))]; }
    // Numbers the objects marked in `first` from 1 in order, then the others
    // after them, still in order (the write order does not change).
    void NumberMarkedFirst(const std::vector<uint8_t>& first) {
        ASInt32 next = 1;
        for (int pass = 1; pass >= 0; --pass)
            for (size_t i = 0; i < order.size(); ++i)
                if ((first[i] != 0) == (pass == 1)) m_newNum[size_t(CosObjGetID(order[i]))] = next++;
    }

private:
    void Grow(ASInt32 id) {
        if (static_cast<size_t>(id) >= m_newNum.size()) {
            m_newNum.resize(size_t(id) + 1, 0);
            m_stop.resize(size_t(id) + 1, 0);
        }
    }
    bool Numbered(CosObj obj) {
        ASInt32 id = CosObjGetID(obj);
        if (id <= 0) return true;  // direct: nothing to number
        Grow(id);
        return m_newNum[size_t(id)] != 0;
    }
    void Assign(CosObj obj) {
        if (Numbered(obj)) return;
        order.push_back(obj);
        m_newNum[size_t(CosObjGetID(obj))] = static_cast<ASInt32>(order.size());
    }
    // Appends the indirect objects that `obj`'s direct parts refer to, in
    // the order they appear.
    void CollectRefs(CosObj obj, std::vector<CosObj>& out, int depth);
    void AddValue(CosObj value, std::vector<CosObj>& out, int depth);
    // Numbers `start` (when indirect and new) and everything reachable from
    // it depth first, skipping objects marked as stops.
    void Visit(CosObj start);
    void WalkPageTree(CosObj pagesRoot);

    CosDoc m_doc;
    std::vector<ASInt32> m_newNum;
    std::vector<uint8_t> m_stop;
    std::vector<CosObj> m_pages;
    std::vector<CosObj> m_treeNodes;
};

void SavePlan::AddValue(CosObj value, std::vector<CosObj>& out, int depth) {
    if (value == nullptr) return;
    CosObj v = CosResolve(value);
    if (CosObjIsIndirect(v)) {
        out.push_back(v);
        return;
    }
    CosType t = CosObjGetType(v);
    if (t == kCosArray || t == kCosDict) CollectRefs(v, out, depth + 1);
}

void SavePlan::CollectRefs(CosObj obj, std::vector<CosObj>& out, int depth) {
    if (depth > kMaxDepth) ASRaiseErr(ErrSysCos, kErrTooComplex);
    CosType t = CosObjGetType(obj);
    if (t == kCosArray) {
        for (ASInt32 i = 0, n = CosArrayLength(obj); i < n; ++i) AddValue(CosArrayGetRaw(obj, i), out, depth);
    } else if (t == kCosDict || t == kCosStream) {
        CosObj dict = t == kCosStream ? CosStreamDict(obj) : obj;
        for (ASInt32 i = 0, n = CosDictCount(dict); i < n; ++i) {
            // A stream's Length is rewritten as a direct number, so an
            // indirect length object is not needed any more.
            if (t == kCosStream && CosDictKeyAt(dict, i) == cosnames::Length) continue;
            AddValue(CosDictValueAtRaw(dict, i), out, depth);
        }
    }
}

void SavePlan::Visit(CosObj start) {
    if (start == nullptr || CosObjIsNull(start)) return;
    std::vector<CosObj> stack;
    std::vector<CosObj> refs;
    Assign(start);
    CollectRefs(start, refs, 0);
    stack.assign(refs.rbegin(), refs.rend());
    while (!stack.empty()) {
        CosObj o = stack.back();
        stack.pop_back();
        if (Numbered(o) || m_stop[size_t(CosObjGetID(o))]) continue;
        Assign(o);
        refs.clear();
        CollectRefs(o, refs, 0);
        stack.insert(stack.end(), refs.rbegin(), refs.rend());
    }
}

void SavePlan::WalkPageTree(CosObj pagesRoot) {
    // Tree nodes are numbered in document order as they are met; pages are
    // only collected (and marked as stops) so each can be numbered in its
    // turn, followed by what it uses.
    std::vector<uint8_t> seen(m_newNum.size(), 0);
    std::vector<std::pair<CosObj, int>> stack{{pagesRoot, 0}};
    while (!stack.empty()) {
        auto [node, depth] = stack.back();
        stack.pop_back();
        node = CosResolve(node);
        if (CosObjGetType(node) != kCosDict || !CosObjIsIndirect(node) || depth > kMaxDepth) continue;
        ASInt32 id = CosObjGetID(node);
        Grow(id);
        if (seen.size() < m_newNum.size()) seen.resize(m_newNum.size(), 0);
        if (seen[size_t(id)]) continue;  // a loop in the tree
        seen[size_t(id)] = 1;
        CosObj kids = CosDictGet(node, cosnames::Kids);
        ASAtom type = CosDictGetName(node, cosnames::Type);
        bool isTreeNode = type == cosnames::Pages || (type != cosnames::Page && CosObjGetType(kids) == kCosArray);
        if (!isTreeNode) {
            m_pages.push_back(node);
            m_stop[size_t(id)] = 1;
            continue;
        }
        Assign(node);
        m_treeNodes.push_back(node);
        if (CosObjGetType(kids) != kCosArray) continue;
        for (ASInt32 i = CosArrayLength(kids) - 1; i >= 0; --i) stack.emplace_back(CosArrayGetRaw(kids, i), depth + 1);
    }
}

void SavePlan::Build(CosObj root, CosObj info, CosObj encrypt, CosObj id) {
    // Catalog first, then the page tree, then each page followed by the
    // objects it is the first page to use: a reader that shows page 1 finds
    // what it needs near the start, and shared resources sit with the first
    // page that uses them.  Everything else reachable follows.
    groupStarts.push_back(0);
    Assign(root);
    if (CosObjGetType(root) == kCosDict) WalkPageTree(CosDictGet(root, cosnames::Pages));
    for (CosObj page : m_pages) {
        groupStarts.push_back(order.size());
        Visit(page);
    }
    std::fill(m_stop.begin(), m_stop.end(), 0);
    groupStarts.push_back(order.size());
    for (CosObj node : m_treeNodes) Visit(node);
    for (CosObj top : {root, info, encrypt, id}) {
        if (top == nullptr || CosObjIsNull(top)) continue;
        if (CosObjIsIndirect(top)) {
            Visit(top);
        } else {
            std::vector<CosObj> refs;
            CollectRefs(top, refs, 0);
            for (CosObj r : refs) Visit(r);
        }
    }
}

// Version text "M.m" for the header field patched after the body.
std::string VersionText(int major, int minor) {
    char buf[32];
    snprintf(buf, sizeof buf, "%d.%d", major, minor);
    return buf;
}

// The body of the compact form.  Objects are written in plan order; those
// marked packable go into object streams (cut where the stream plan says,
// or where a stream would outgrow its byte limit), the others are written
// as they come.  An object stream is written when it is complete, numbered
// after every object of the plan.  Strings inside an object stream are not
// encrypted on their own: the whole stream is.  Fills `rows` with every
// object written and returns the highest number used.
template <typename Emit, typename Write>
ASInt32 WriteCompactBody(const SavePlan& plan, const std::vector<uint8_t>& packable, const CosSaveParams& params,
                         CosObj encryptDict, ASInt32 encryptNum, ASInt32 count, CosObjWriter& writer,
                         CosCryptFilter* crypt, Emit& emit, Write& write, const std::vector<int64_t>& offsets,
                         std::vector<CosXrefStreamRow>& rows) {
    CosObjStmLimits limits;
    if (params.objectsPerStream > 0) limits.maxObjects = size_t(params.objectsPerStream);
    const size_t n = plan.order.size();
    std::vector<size_t> groupSizes;
    for (size_t g = 0; g < plan.groupStarts.size(); ++g) {
        const size_t end = g + 1 < plan.groupStarts.size() ? plan.groupStarts[g + 1] : n;
        size_t inGroup = 0;
        for (size_t i = plan.groupStarts[g]; i < end && i < n; ++i) inGroup += packable[i];
        groupSizes.push_back(inGroup);
    }
    const std::vector<bool> breaks = CosPlanObjStmBreaks(groupSizes, limits.maxObjects);

    CosObjStmBuilder stm;
    ASInt32 nextNum = count + 1;
    std::string text, body;
    auto flush = [&] {
        if (stm.Count() == 0) return;
        const ASInt32 num = nextNum++;
        size_t first = 0;
        const std::string data = stm.Build(&first);
        const std::span<const uint8_t> raw(reinterpret_cast<const uint8_t*>(data.data()), data.size());
        std::vector<uint8_t> bytes = filters::FlateEncode(raw, 9);
        const bool flate = bytes.size() < raw.size();
        if (!flate) bytes.assign(raw.begin(), raw.end());
        if (crypt) crypt->Encrypt(static_cast<ASUns32>(num), 0, bytes);
        std::string dict = "<</Type/ObjStm/N ";
        CosWriteInteger(dict, static_cast<int64_t>(stm.Count()));
        dict += "/First ";
        CosWriteInteger(dict, static_cast<int64_t>(first));
        if (flate) dict += "/Filter/FlateDecode";
        dict += "/Length ";
        CosWriteInteger(dict, static_cast<int64_t>(bytes.size()));
        dict += ">>";
        for (size_t k = 0; k < stm.Members().size(); ++k)
            rows.push_back({stm.Members()[k], 2, static_cast<uint64_t>(num), k});
        rows.push_back({num, 1, 0, 0});
        text.clear();
        CosWriteStreamObject(text, num, dict, bytes);
        rows.back().field2 = static_cast<uint64_t>(write(text));
        stm.Clear();
    };
    auto plain = [&](ASInt32 num, CosObj obj, bool encrypt) {
        emit(num, obj, encrypt);
        rows.push_back({num, 1, static_cast<uint64_t>(offsets[size_t(num)]), 0});
    };

    size_t k = 0;
    for (size_t i = 0; i < n; ++i) {
        const ASInt32 num = plan.NumberAt(i);
        CosObj obj = plan.order[i];
        if (!packable[i]) {
            plain(num, obj, crypt != nullptr && num != encryptNum);
            continue;
        }
        if (breaks[k++]) flush();
        body.clear();
        writer.SetCrypt(nullptr, 0, 0);
        writer.WriteBody(body, obj);
        if (!CosObjIsNull(obj)) CosObjSetChanged(obj, false);
        if (body.size() > limits.maxBytes) {
            // Too big to share a stream with anything: an ordinary object.
            plain(num, obj, crypt != nullptr && num != encryptNum);
            continue;
        }
        if (stm.Count() > 0 && stm.BodyBytes() + body.size() > limits.maxBytes) flush();
        stm.Add(num, body);
    }
    flush();
    if (crypt && !CosObjIsIndirect(encryptDict)) plain(encryptNum, encryptDict, false);
    return nextNum - 1;
}

}  // namespace

// ================================================================ the save

int64_t CosDocSave(CosDoc doc, const CosSaveParams& params) {
    CosDocValidate(doc);
    if (params.size != sizeof(CosSaveParams) || params.path.empty()) BadParm();
    bool linearize = false;
    const ASUns32 mode = CosSaveModeFromFlags(params.flags, &linearize);
    // Incremental and linearised layouts are not written by this writer: every
    // save is a full save in plain object order (see docs/writer.md).  A
    // linearise request only keeps the catalog out of object streams.

    CosObj trailer = CosDocGetTrailer(doc);
    CosObj root = CosDocGetRoot(doc);
    if (CosObjGetType(root) != kCosDict) ASRaiseErr(ErrSysPDDoc, kErrBadRoot);
    CosObj info = CosDocGetInfo(doc);
    if (CosObjGetType(info) != kCosDict) info = CosNewNull();
    CosObj idArray = CosDictGet(trailer, cosnames::ID);
    CosCryptFilter* crypt = CosDocGetWriteCrypt(doc);
    CosObj encryptDict = crypt ? CosDocGetWriteEncryptDict(doc) : CosNewNull();
    if (crypt && CosObjGetType(encryptDict) != kCosDict) BadParm();

    // A full save starts from a clean slate of changed marks.
    CosDocXref(doc).ForEach([](size_t, CosXrefEntry& e) {
        if (e.obj) CosObjSetChanged(e.obj, false);
    });

    SavePlan plan(doc);
    plan.Build(root, info, encryptDict, CosNewNull());
    // In the compact form the packed objects take the numbers 1..P and the
    // others follow: the cross-reference stream then holds one run of
    // packed entries whose rows differ only in their index, and one run of
    // offsets that only grow, which its predictor turns into near zeros.
    const bool objStms = (mode & kCosSaveModeObjectStreams) != 0;
    std::vector<uint8_t> packable;
    if (objStms) {
        const bool linearizing = linearize || (params.flags & kCosSaveLinearize) != 0;
        packable.assign(plan.order.size(), 0);
        for (size_t i = 0; i < plan.order.size(); ++i) {
            CosObj o = plan.order[i];
            packable[i] = CosMayPackInObjStm(o, 0, o == encryptDict, o == root, linearizing);
        }
        plan.NumberMarkedFirst(packable);
    }
    ASInt32 count = static_cast<ASInt32>(plan.order.size());
    ASInt32 encryptNum = 0;
    if (crypt) encryptNum = CosObjIsIndirect(encryptDict) ? plan.NewNumber(encryptDict) : ++count;

    // Header version: as asked, else the input's; raised below when the
    // written objects need a newer one.
    const CosDocFileInfo& fi = CosDocGetFileInfo(doc);
    int major = params.majorVersion > 0 ? params.majorVersion : fi.majorVersion;
    int minor = params.majorVersion > 0 ? params.minorVersion : fi.minorVersion;
    if (major < 1) {
        major = 1;
        minor = 4;
    }
    if (minor < 0) minor = 0;
    if (minor > 9) minor = 9;

    CosOutputFile file(params.path);
    std::string buf;
    buf.reserve(1 << 16);
    buf = "%PDF-";
    const int64_t versionField = static_cast<int64_t>(buf.size());
    buf += VersionText(major, minor);
    // A comment of bytes above 127 tells transfer tools the file is binary.
    buf += "\r%\xE2\xE3\xCF\xD3\r";
    file.Write(buf);

    CosObjWriter writer((mode & kCosSaveModeCompact) != 0);
    writer.SetPrecision(CosDocGetPrecision(doc));
    writer.SetRenumbering(&plan.NewNumbers());
    MD5 bodyHash;
    std::vector<int64_t> offsets(static_cast<size_t>(count) + 1, 0);
    // Writes body bytes (which the file identifier is made from); returns
    // the offset they start at.
    auto write = [&](const std::string& text) {
        const int64_t at = file.Tell();
        bodyHash.Update(std::string_view(text));
        file.Write(text);
        return at;
    };
    auto emit = [&](ASInt32 num, CosObj obj, bool encrypt) {
        offsets[size_t(num)] = file.Tell();
        buf.clear();
        writer.SetCrypt(encrypt ? crypt : nullptr, static_cast<ASUns32>(num), 0);
        writer.WriteIndirect(buf, num, 0, obj);
        write(buf);
        if (buf.capacity() > (size_t(8) << 20)) {
            buf.clear();
            buf.shrink_to_fit();
        }
    };
    // Rows of the cross-reference stream (compact form only).
    std::vector<CosXrefStreamRow> rows;
    ASInt32 lastNum = count;
    if (!objStms) {
        for (size_t i = 0; i < plan.order.size(); ++i) {
            ASInt32 num = static_cast<ASInt32>(i) + 1;
            emit(num, plan.order[i], crypt != nullptr && num != encryptNum);
        }
        if (crypt && !CosObjIsIndirect(encryptDict)) emit(encryptNum, encryptDict, false);
    } else {
        lastNum = WriteCompactBody(plan, packable, params, encryptDict, encryptNum, count, writer, crypt, emit, write,
                                   offsets, rows);
    }

    // Header version raised for what the body turned out to use.
    int needMinor = writer.RequiredMinorVersion();
    if (objStms) needMinor = std::max(needMinor, 5);
    if (crypt) {
        ASInt32 r = CosDictGetInt(encryptDict, K_R, 2);
        ASInt32 v = CosDictGetInt(encryptDict, K_V, 1);
        needMinor = std::max(needMinor, (r >= 4 || v >= 4) ? 5 : (r >= 3 || v >= 2) ? 4 : 0);
    }
    ASAtom catVersion = CosDictGetName(root, K_Version);
    if (catVersion != ASAtomNull) {
        const char* s = ASAtomGetString(catVersion);
        if (s[0] == '1' && s[1] == '.' && s[2] >= '0' && s[2] <= '9' && s[3] == '\0')
            needMinor = std::max(needMinor, s[2] - '0');
    }

    // File identifier: the first element kept when there is one, the second
    // always new.  Under SOURCE_DATE_EPOCH it depends on the content only.
    MD5::Digest body = bodyHash.Final();
    MD5 idHash;
    idHash.Update(std::span<const uint8_t>(body.data(), body.size()));
    if (!CosInfoReproducible()) {
        auto ns = std::chrono::system_clock::now().time_since_epoch().count();
        idHash.Update(std::string_view(reinterpret_cast<const char*>(&ns), sizeof ns));
        idHash.Update(std::string_view(params.path));
        pid_t pid = getpid();
        idHash.Update(std::string_view(reinterpret_cast<const char*>(&pid), sizeof pid));
    }
    MD5::Digest fresh = idHash.Final();
    std::string id0(reinterpret_cast<const char*>(fresh.data()), fresh.size());
    std::string id1 = id0;
    CosObj first = CosObjGetType(idArray) == kCosArray ? CosArrayGet(idArray, 0) : CosNewNull();
    if (CosObjGetType(first) == kCosString) id0 = CosStringBytes(first);

    // The trailer's entries after Size: in the trailer dictionary of the
    // classic form, in the cross-reference stream's dictionary otherwise.
    std::string entries;
    writer.SetCrypt(nullptr, 0, 0);
    writer.WriteDictEntry(entries, cosnames::Root, root);
    if (!CosObjIsNull(info)) writer.WriteDictEntry(entries, cosnames::Info, info);
    std::string value;
    if (crypt) {
        CosWriteInteger(value, encryptNum);
        value += " 0 R";
        writer.WriteDictEntryText(entries, cosnames::Encrypt, value);
    }
    value = "[";
    CosWriteHexString(value, std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(id0.data()), id0.size()));
    CosWriteHexString(value, std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(id1.data()), id1.size()));
    value += "]";
    writer.WriteDictEntryText(entries, cosnames::ID, value);

    const int64_t xrefOffset = file.Tell();
    buf.clear();
    if (!objStms) {
        // The cross-reference table: one run 1..count, written from 0.
        CosXrefTable xref;
        if (count > 0) xref.AddSubsection(1, count);
        xref.Write(buf, true, [&](ASInt32 n) { return CosXrefTable::Entry{offsets[size_t(n)], 0}; });
        std::string dict;
        writer.BeginDict(dict);
        value.clear();
        CosWriteInteger(value, int64_t(count) + 1);
        writer.WriteDictEntryText(dict, cosnames::Size, value);
        dict += entries;
        writer.EndDict(dict);
        CosWriteTrailer(buf, dict);
    } else {
        // The cross-reference stream comes last and lists itself.  It is
        // never encrypted: a reader needs it before it has a key.
        const ASInt32 xrefNum = lastNum + 1;
        rows.push_back({xrefNum, 1, static_cast<uint64_t>(xrefOffset), 0});
        rows.push_back({0, 0, 0, 65535});
        CosXrefStreamData xd = CosEncodeXrefStream(std::move(rows));
        filters::Bytes packed = filters::FlateEncode(xd.predicted, 9);
        CosWriteStreamObject(buf, xrefNum, CosXrefStreamDictText(xd, packed.size(), entries), packed);
    }
    CosWriteEnd(buf, xrefOffset);
    file.Write(buf);

    if (major == 1 && needMinor > minor) file.PatchField(versionField, 777, VersionText(1, needMinor));
    const int64_t total = file.Tell();
    if (params.commitOnlyIfAtMost >= 0 && total > params.commitOnlyIfAtMost) return total;  // discarded unwritten
    file.Commit();
    return total;
}
