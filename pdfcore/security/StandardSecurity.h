// The "Standard" security handler: opening RC4-encrypted documents
// (revisions 2 and 3) and setting up encryption for saving.
#pragma once

#include <string>

#include "pdfcore/CosDoc.h"
#include "pdfcore/security/StdSecAlgorithms.h"

// Registers the handler under the filter name "Standard" (done by CosCoreInit).
void RegisterStandardSecurityHandler();

// The handler's open entry: reads the Encrypt dictionary, authenticates
// `password` as user password and as owner password, and returns the
// filter for the document.  Raises "the specified security handler revision
// is not yet implemented" for revisions other than 2 and 3, "this document
// requires a password" when the password fits neither, "this viewer cannot
// decrypt this document" when the key length is outside 40..128.
CosSecurityOpenResult StdSecOpen(CosObj encryptDict, CosObj idArray, const std::string& password);

// Reads an Encrypt dictionary into `params` (without the ID).  Returns false
// when the key length is outside 40..128: the values read up to there are
// kept, but no key can be made from them.
bool StdSecReadEncryptDict(CosObj encryptDict, StdSecParams* params);

// What an opened document was encrypted with.  False when it was not
// encrypted with this handler.
struct StdSecDocInfo {
    StdSecParams params;
    bool ownerAuthenticated = false;
};
bool StdSecGetInputEncryption(CosDoc doc, StdSecDocInfo* info);

// The permission query behind PDDocPermRequest: an unencrypted document and
// one opened with the owner password grant everything; otherwise every bit
// of `mask` must be granted by the document's P value.
bool StdSecDocPermits(CosDoc doc, ASInt32 mask);

// Sets the document up to be saved encrypted: builds the file identifier
// (when the trailer has none), O, U and the file key, and installs the
// write filter with its Encrypt dictionary.  `securityWord` holds the
// password-given bits (1 user, 2 owner), the "no" bits 0x4-0x20 and the
// "allow" bits 0x100-0x800.  At least one of the two password-given bits
// must be set, else "this document requires a password".  An empty owner
// password is replaced by the user password.  `keyLengthBits` is 40
// (revision 2) or a multiple of 8 up to 128 (revision 3).
void SetupStandardEncryption(CosDoc doc, const std::string& ownerPassword,
                             const std::string& userPassword, ASUns16 securityWord,
                             ASInt32 keyLengthBits);

// For an encrypted input saved without new encryption settings: when it was
// opened without the owner password, installs a write filter with the
// input's own O, U, P, R and key (and keeps the first ID element they
// depend on), so the output is protected exactly as the input was; returns
// true.  Returns false, installing nothing, when the input was not
// encrypted or was opened with the owner password (the owner may remove
// the protection).
bool KeepInputEncryption(CosDoc doc);
