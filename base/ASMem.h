// The core's heap and its control record.
//
// Every block the core allocates comes from ASmalloc/ASrealloc and goes back
// through ASfree.  None of them ever returns null: failures raise.  The
// control record (set up by VellumInit) switches on leak-proof blocks,
// block validation, object-usage tracking and the end-of-run reports.
#pragma once

#include <cstddef>
#include <cstdint>
#include "base/ASError.h"

// Allocation kinds passed to the core allocator (informational only).
enum : ASInt32 { kASAllocDefault = 2 };

// The core allocator: size must be above 0 ("bad parameter" otherwise).
void* ASmallocEx(ASInt32 size, ASInt32 kind, const char* file, ASInt32 line, bool clear);
void* ASmalloc(ASInt32 size);   // kind 2, not cleared
void* AScalloc(ASInt32 size);   // kind 2, cleared
void ASfree(void* p);           // null is ignored
void* ASrealloc(void* p, ASInt32 newSize, bool clear = false);

// Counters since start-up.
ASInt32 ASGetMallocCount();
ASInt32 ASGetFreeCount();

// Status sink: receives every diagnostic the core prints.
typedef void (*VellumStatusProc)(const char* text, void* clientData);
// The special "print straight to the console" callback value.
#define kVellumStatusToConsole (reinterpret_cast<VellumStatusProc>(~static_cast<uintptr_t>(0)))

// Client flags for VellumDataRec.vellumFlags.
enum : ASUns32 {
    kVellumLeakproof = 0x0001,      // every block carries a list header
    kVellumTrackObjUsage = 0x0002,  // count objects per kind
    kVellumReport = 0x0004,         // print the two reports at shutdown
    kVellumValidateBlocks = 0x0008, // ASfree/ASrealloc check blocks (needs leak-proof)
};

struct VellumDataRec {
    ASUns32 size = sizeof(VellumDataRec);  // must equal sizeof(VellumDataRec)
    ASUns32 vellumFlags = 0;
    VellumStatusProc statusProc = nullptr;
    void* statusClientData = nullptr;
};

// Starts the core: sets up the control record, registers the core's names
// and its security handlers.  Raises "bad parameter" on a bad record.
void VellumInit(const VellumDataRec* rec);
// Prints the reports (when asked for) and drops the control record.
void VellumTerm();
bool VellumIsInitialized();
// The core's version string, as printed in the version text.
const char* VellumGetVersion();

// printf-style diagnostic through the status callback of the control record.
void VellumStatusPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Object usage table (70 kinds; see ASUsage.h for the indices).
void ASUsageCreated(ASInt32 kind);
void ASUsageFreed(ASInt32 kind);
