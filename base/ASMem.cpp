// The core's heap, its control record, the status sink and the two
// end-of-run reports (memory summary, object usage table).
//
// Block layout.  The caller's pointer always has the block's requested size
// in the 32-bit word right before it.  In leak-proof mode the header also
// holds the links of the live-block list (next, previous).  The headers are
// the classic 4 and 12 bytes widened to 16 and 32 so that the caller's bytes
// keep the C heap's alignment on 64-bit machines; the spare word beside the
// size carries a tag naming the layout, so a block is always released with
// the layout it was made with even if the mode changed in between (blocks
// made before VellumInit or freed after VellumTerm).
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/ASMem.h"
#include "base/ASUsage.h"

namespace {

constexpr ASUns32 kTagPlain = 0x564D5031;   // normal-mode block
constexpr ASUns32 kTagLinked = 0x564D4C31;  // leak-proof block, on the live list

// The two words right before the caller's bytes, in both layouts.
struct BlockTail {
    ASUns32 tag;
    ASInt32 size;
};

struct PlainHeader {
    ASUns32 spare[2];
    BlockTail tail;
};

struct LinkedHeader {
    LinkedHeader* next;
    LinkedHeader* prev;
    ASUns32 spare[2];
    BlockTail tail;
};

static_assert(sizeof(PlainHeader) == 16, "normal header keeps 16-byte alignment");
static_assert(sizeof(LinkedHeader) == 32, "leak-proof header keeps 16-byte alignment");

// The library control record: present between VellumInit and VellumTerm.
struct VellumControl {
    ASUns32 reserved = 0;
    ASUns16 leakproof = 0;
    ASUns16 trackObjUsage = 0;
    ASUns16 report = 0;
    ASUns16 validateBlocks = 0;
    VellumStatusProc statusProc = nullptr;
    void* statusClientData = nullptr;
};

VellumControl g_record;
VellumControl* g_control = nullptr;

// The live list outlives the control record: leak-proof blocks may be
// released after shutdown and must still be unlinked.
LinkedHeader* g_liveHead = nullptr;

// Counters since start-up (unsigned so that a very long run wraps instead
// of overflowing).
ASUns32 g_mallocs = 0;
ASUns32 g_frees = 0;

// Unsigned like the heap counters: a long batch run wraps them instead of
// overflowing, and created - freed stays the number alive across a wrap.
struct UsageRow {
    ASUns32 created = 0;
    ASUns32 freed = 0;
    ASUns32 highWater = 0;
};
UsageRow g_usage[kUsageKindCount];

const char* const kUsageNames[kUsageKindCount] = {
    "Array", "HashTable", "HashtableEntriesTable", "ASFile", "ASFileStream", "ASMemStream",
    "ASProcStream", "AVDoc", "AVMenu", "AVMenubar", "AVMenuItem", "AVPageView", "AVToolBar",
    "AVToolButton", "AVWindow", "CosArray", "CosBoolean", "CosDict", "CosDoc", "CosDocRevision",
    "CosName", "CosNull", "CosNumber", "CosObjMappings", "CosObjWriter", "CosIndirect",
    "CosIndirectKey", "CosKeyValuePairsArray", "CosXRefSubSectionArray", "CosStream", "CosString",
    "CosTrailer", "CosXRef", "FilterInputStream", "FilterOutputStream", "ASCIIHexFilter",
    "ASCII85Filter", "LZWFilter", "RunLengthFilter", "CCITTFaxFilter", "DCTFilter", "FlateFilter",
    "PDAction", "PDAnnot", "PDBookmark", "PDBead", "CosDictToPDBookmarkMapping",
    "CosXObjectToPDXObjectMapping", "PDDoc", "PagesTreeHelper", "PDPage", "PDPath", "PDFileSpec",
    "PDFont", "PDInlineImage", "PDLinkAnnot", "PDText", "PDTextSelect", "PDThread", "PDTrans",
    "PDViewDestination", "PDWord", "PDWordFinder", "PDXObject", "FDFDoc",
    "ApplicationDefinedObject", "LSObjCollector", "BitStreamWriter", "OnePageCosObj",
    "PDPageToPageNumberMappingbject",
};

constexpr size_t kStatusBufferSize = 32768;

BlockTail* TailOf(void* p) { return reinterpret_cast<BlockTail*>(static_cast<char*>(p) - sizeof(BlockTail)); }
LinkedHeader* LinkedOf(void* p) {
    return reinterpret_cast<LinkedHeader*>(static_cast<char*>(p) - sizeof(LinkedHeader));
}

bool LeakproofOn() { return g_control && g_control->leakproof; }
bool ValidationOn() { return g_control && g_control->leakproof && g_control->validateBlocks; }

// Looks the block up in the live list without touching its memory, so any
// pointer at all may be checked.
bool OnLiveList(const void* p) {
    for (LinkedHeader* h = g_liveHead; h; h = h->next)
        if (reinterpret_cast<const char*>(h) + sizeof(LinkedHeader) == p) return true;
    return false;
}

void Unlink(LinkedHeader* h) {
    if (h->prev)
        h->prev->next = h->next;
    else
        g_liveHead = h->next;
    if (h->next) h->next->prev = h->prev;
}

void VStatus(const char* format, va_list args) {
    if (!g_control) return;
    VellumStatusProc proc = g_control->statusProc;
    if (!proc || !format || !*format) return;
    if (proc == kVellumStatusToConsole) {
        vfprintf(stderr, format, args);
        fflush(stderr);
        return;
    }
    // The status buffer comes from the C heap: the core heap may be what failed.
    char* buffer = static_cast<char*>(malloc(kStatusBufferSize));
    if (!buffer) {
        proc("INSUFFICIENT MEMORY TO FORMAT STATUS MESSAGE\n", g_control->statusClientData);
        return;
    }
    vsnprintf(buffer, kStatusBufferSize, format, args);
    proc(buffer, g_control->statusClientData);
    free(buffer);
}

void MemorySummary() {
    VellumStatusPrintf("Vellum memory allocation summary: total mallocs = %ld, total frees = %ld\n",
                       static_cast<long>(static_cast<ASInt32>(g_mallocs)),
                       static_cast<long>(static_cast<ASInt32>(g_frees)));
    if (!g_control->leakproof) {
        VellumStatusPrintf(
            "\n\nNote: to review Vellum's detailed memory leak information, OR the kVellumLeakproof into "
            "VellumDataRec.vellumFlags before calling VellumInit.\n");
        return;
    }
    if (!g_liveHead) return;
    VellumStatusPrintf("Reporting memory leaks caused by ASmalloc calls:\n");
    VellumStatusPrintf("Note: to obtain detailed information about the file and line where the leak\n");
    VellumStatusPrintf("occurred, as well as other useful debugging information, please use a debug\n");
    VellumStatusPrintf("version of this application.\n");
    for (LinkedHeader* h = g_liveHead; h; h = h->next)
        VellumStatusPrintf("  Leaked %ld bytes\n", static_cast<long>(h->tail.size));
}

void UsageReport() {
    if (!g_control->trackObjUsage) {
        VellumStatusPrintf(
            "\n\nNote: to review object usage by Vellum, OR the kVellumTrackObjUsage into "
            "VellumDataRec.vellumFlags before calling VellumInit.\n");
        return;
    }
    VellumStatusPrintf("\n\nVellum object usage table:\n");
    VellumStatusPrintf("%32s%20s%20s%20s%20s\n", "", "created", "freed", "leaked", "high water mark");
    for (int k = 0; k < kUsageKindCount; ++k) {
        const UsageRow& r = g_usage[k];
        if (r.created == 0) continue;
        VellumStatusPrintf("%32s%20d%20d%20d%20d\n", kUsageNames[k], static_cast<ASInt32>(r.created),
                           static_cast<ASInt32>(r.freed), static_cast<ASInt32>(r.created - r.freed),
                           static_cast<ASInt32>(r.highWater));
    }
}

}  // namespace

// ---------------------------------------------------------------- the heap

void* ASmallocEx(ASInt32 size, ASInt32 /*kind*/, const char* /*file*/, ASInt32 /*line*/, bool clear) {
    if (size <= 0) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    const bool linked = LeakproofOn();
    const size_t header = linked ? sizeof(LinkedHeader) : sizeof(PlainHeader);
    char* raw = static_cast<char*>(malloc(header + static_cast<size_t>(size)));
    if (!raw) ASRaiseErr(ErrSysGeneral, kErrNoMemory);
    ++g_mallocs;
    void* p = raw + header;
    if (linked) {
        auto* h = reinterpret_cast<LinkedHeader*>(raw);
        h->prev = nullptr;
        h->next = g_liveHead;
        if (g_liveHead) g_liveHead->prev = h;
        g_liveHead = h;
    }
    if (clear) memset(p, 0, static_cast<size_t>(size));
    TailOf(p)->tag = linked ? kTagLinked : kTagPlain;
    TailOf(p)->size = size;
    return p;
}

void* ASmalloc(ASInt32 size) { return ASmallocEx(size, kASAllocDefault, nullptr, 0, false); }

void* AScalloc(ASInt32 size) { return ASmallocEx(size, kASAllocDefault, nullptr, 0, true); }

void ASfree(void* p) {
    if (!p) return;
    if (ValidationOn() && !OnLiveList(p)) {
        VellumStatusPrintf("ASfree called with an invalid block\n");
        return;
    }
    BlockTail* tail = TailOf(p);
    if (tail->tag == kTagLinked) {
        LinkedHeader* h = LinkedOf(p);
        Unlink(h);
        h->tail.tag = 0;
        free(h);
    } else if (tail->tag == kTagPlain) {
        tail->tag = 0;
        free(static_cast<char*>(p) - sizeof(PlainHeader));
    } else {
        // Not a block of this heap (or one already released): releasing it
        // would corrupt the C heap, so it is reported and left alone.
        VellumStatusPrintf("ASfree called with an invalid block\n");
        return;
    }
    ++g_frees;
}

void* ASrealloc(void* p, ASInt32 newSize, bool clear) {
    if (newSize <= 0) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    if (!p) return ASmallocEx(newSize, kASAllocDefault, nullptr, 0, clear);
    if (ValidationOn() && !OnLiveList(p)) {
        VellumStatusPrintf("ASrealloc called with an invalid block\n");
        ASRaiseErr(ErrSysGeneral, kErrBadParm);
    }
    BlockTail* tail = TailOf(p);
    if (tail->tag != kTagLinked && tail->tag != kTagPlain) {
        VellumStatusPrintf("ASrealloc called with an invalid block\n");
        ASRaiseErr(ErrSysGeneral, kErrBadParm);
    }
    const ASInt32 stored = tail->size;
    if (newSize <= stored) {
        // The block keeps its place and its stored size; callers rely on
        // getting the same pointer back.
        memset(static_cast<char*>(p) + newSize, 0, static_cast<size_t>(stored - newSize));
        return p;
    }
    void* q = ASmallocEx(newSize, kASAllocDefault, nullptr, 0, clear);
    memcpy(q, p, static_cast<size_t>(stored));
    ASfree(p);
    return q;
}

ASInt32 ASGetMallocCount() { return static_cast<ASInt32>(g_mallocs); }
ASInt32 ASGetFreeCount() { return static_cast<ASInt32>(g_frees); }

// ------------------------------------------------------- the control record

void VellumInit(const VellumDataRec* rec) {
    if (!rec || rec->size != sizeof(VellumDataRec)) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    g_record = VellumControl{};
    g_record.leakproof = (rec->vellumFlags & kVellumLeakproof) ? 1 : 0;
    g_record.trackObjUsage = (rec->vellumFlags & kVellumTrackObjUsage) ? 1 : 0;
    g_record.report = (rec->vellumFlags & kVellumReport) ? 1 : 0;
    g_record.validateBlocks = (rec->vellumFlags & kVellumValidateBlocks) ? 1 : 0;
    g_record.statusProc = rec->statusProc;
    g_record.statusClientData = rec->statusClientData;
    g_control = &g_record;
}

void VellumTerm() {
    if (!g_control) return;
    if (g_control->report) {
        MemorySummary();
        UsageReport();
    }
    g_control = nullptr;
}

bool VellumIsInitialized() { return g_control != nullptr; }

const char* VellumGetVersion() { return "3.6.1"; }

void VellumStatusPrintf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    VStatus(format, args);
    va_end(args);
}

// ------------------------------------------------------ object usage table

void ASUsageCreated(ASInt32 kind) {
    if (!g_control || !g_control->trackObjUsage || kind < 0 || kind >= kUsageKindCount) return;
    UsageRow& r = g_usage[kind];
    ++r.created;
    // Compared signed, so that more frees than creations (objects made
    // while tracking was off) never look like a huge number alive.
    const ASInt32 alive = static_cast<ASInt32>(r.created - r.freed);
    if (alive > static_cast<ASInt32>(r.highWater)) r.highWater = static_cast<ASUns32>(alive);
}

void ASUsageFreed(ASInt32 kind) {
    if (!g_control || !g_control->trackObjUsage || kind < 0 || kind >= kUsageKindCount) return;
    ++g_usage[kind].freed;
}
