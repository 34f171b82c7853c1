// The document layer: PDDoc over a Cos document, the page tree and pages.
#pragma once

#include <string>
#include <vector>

#include "pdfcore/CosDoc.h"

struct PDDocRec;
struct PDPageRec;
typedef PDDocRec* PDDoc;
typedef PDPageRec* PDPage;

// Opens a file (see CosDocOpen); raises on failure.
PDDoc PDDocOpen(const std::string& path, const std::string& password = "");
// Wraps an existing Cos document (takes ownership).
PDDoc PDDocFromCosDoc(CosDoc cos);
// A new document with an empty page tree.
PDDoc PDDocCreate();
// Releases pages still held (with the status message), closes the Cos document.
void PDDocClose(PDDoc doc);
// Raises "bad parameter" (system 3) for a handle that is not open, (system 0) for null.
void PDDocValidate(PDDoc doc);

CosDoc PDDocGetCosDoc(PDDoc doc);
// Page count, computed from the page tree on first request and then kept.
ASInt32 PDDocGetNumPages(PDDoc doc);
// Forgets the kept page count and page list (after the page tree changed).
void PDDocPagesChanged(PDDoc doc);

// The page dictionary of page `pageNum` (0-based), with no handle to release.
CosObj PDDocGetPageObj(PDDoc doc, ASInt32 pageNum);

// Page handles: acquired by number, released with PDPageRelease.
PDPage PDDocAcquirePage(PDDoc doc, ASInt32 pageNum);
void PDPageRelease(PDPage page);
CosObj PDPageGetCosObj(PDPage page);
ASInt32 PDPageGetNumber(PDPage page);
PDDoc PDPageGetDoc(PDPage page);

// An inheritable page attribute (Resources, MediaBox, CropBox, Rotate):
// the page's own value or the nearest ancestor's; null when none has it.
CosObj PDPageGetInheritedAttr(CosObj pageDict, ASAtom key);

// Inserts pages [firstPage, firstPage+count) of `source` after page
// `afterPage` of `target` (-1: before the first page; use
// PDDocGetNumPages(target)-1 to append).  Objects are copied with their
// resources, annotations and the links between copied pages intact.
void PDDocInsertPages(PDDoc target, ASInt32 afterPage, PDDoc source, ASInt32 firstPage,
                      ASInt32 count);
// The same for any list of source pages (0-based, in the order wanted).
// Pages copied in one call share the copies of the resources they share,
// so selecting many pages of a document copies its fonts once.
void PDDocInsertPageList(PDDoc target, ASInt32 afterPage, PDDoc source,
                         const std::vector<ASInt32>& pageNums);
// Deletes pages [firstPage, lastPage] from the page tree.
void PDDocDeletePages(PDDoc doc, ASInt32 firstPage, ASInt32 lastPage);

// Permission query: true when the document grants the operations in `mask`
// (bits of the P value) or was opened with the owner password.
bool PDDocPermRequest(PDDoc doc, ASInt32 mask);

// Saves with the document-level flags (bit 0 full, bit 1 copy, bit 3
// linearise) and header version.  Returns the bytes written.  With
// `commitOnlyIfAtMost` 0 or more, a save of more bytes leaves `path` as it
// was (see CosSaveParams).
int64_t PDDocSave(PDDoc doc, const std::string& path, ASUns32 flags, ASInt16 major = 0,
                  ASInt16 minor = 0, int64_t commitOnlyIfAtMost = -1);
