// The byte-level algorithms of the standard security handler (revisions 2
// and 3, RC4 with MD5-derived keys): password padding, the O and U entries,
// the file key, password checks and per-object keys.  Nothing here touches
// documents, so the key arithmetic can be checked on its own.
#pragma once

#include "pdfcore/security/SecurityWord.h"

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "base/ASError.h"

using StdSecBytes = std::vector<uint8_t>;
using StdSecBlock = std::array<uint8_t, 32>;

// The 32-byte string every password is padded with.
extern const StdSecBlock kStdSecPadding;

// The values an encryption dictionary carries, plus the first element of the
// file identifier, which is part of every key.
struct StdSecParams {
    int revision = 2;        // R: 2 or 3
    int version = 1;         // V: 1 or 2
    int keyLengthBits = 40;  // Length
    ASInt32 permissions = -4;  // P
    StdSecBlock owner{};     // O
    StdSecBlock user{};      // U
    StdSecBytes id0;         // first element of the trailer's ID
    // Bytes of the file key: always 5 for revision 2, Length/8 otherwise.
    size_t KeyBytes() const;
};

// The password cut to 32 bytes, or completed with the padding string.
StdSecBlock StdSecPadPassword(std::string_view password);

// The file key for a padded user password.
StdSecBytes StdSecFileKey(const StdSecBlock& paddedUser, const StdSecParams& params);

// The O entry from the owner and user passwords (both unpadded).
StdSecBlock StdSecComputeO(std::string_view ownerPassword, std::string_view userPassword,
                           int revision, size_t keyBytes);

// The U entry for a file key.  For revision 3 the last 16 bytes are the
// filler 0x10..0x1F, each byte equal to its own position.
StdSecBlock StdSecComputeU(const StdSecBytes& fileKey, int revision, const StdSecBytes& id0);

// Password checks.  On success they return true and give the file key.  The
// owner check also accepts O entries whose 50 extra rounds hashed only the
// first key-length bytes, as some writers make them for keys under 128 bits.
bool StdSecCheckUserPassword(std::string_view password, const StdSecParams& params,
                             StdSecBytes* fileKey);
bool StdSecCheckOwnerPassword(std::string_view password, const StdSecParams& params,
                              StdSecBytes* fileKey);
// The padded user password hidden in O, recovered with the owner password.
StdSecBlock StdSecRecoverUserPassword(std::string_view ownerPassword, const StdSecParams& params);

// The RC4 key for the strings and streams of one object: MD5 of the file
// key, the low 3 bytes of the object number and the low 2 bytes of the
// generation, cut to min(file key bytes + 5, 16).
StdSecBytes StdSecObjectKey(const StdSecBytes& fileKey, ASUns32 objNum, ASUns16 gen);


// Bits of the P value.
enum : ASUns32 {
    kPermPrint = 0x0004,
    kPermModify = 0x0008,
    kPermCopy = 0x0010,
    kPermAnnotate = 0x0020,
    kPermFillForms = 0x0100,
    kPermAccessibility = 0x0200,
    kPermAssemble = 0x0400,
    kPermPrintHighQuality = 0x0800,
    // Bits 7-8 and 13-32, which must be set in every P value.
    kPermReservedOnes = 0xFFFFF0C0,
};

// The P value written for a security word: everything granted except what
// the "no" bits take away; at revision 3 the four "allow" bits are granted
// only when asked for, at revision 2 (which cannot refuse them) always.
ASInt32 StdSecPermissionsFromWord(ASUns16 securityWord, int revision);

// The permission query: true when the owner asks, or when every bit of
// `mask` is set in P.  At revision 2 the bits 0x100-0x800 carry no meaning
// (printing, modifying and annotating cover them), so they count as granted.
bool StdSecPermits(ASInt32 permissions, bool owner, ASInt32 mask, int revision = 3);
