#include "pdfcore/security/StdSecAlgorithms.h"

#include <algorithm>
#include <cstring>

#include "pdfcore/security/MD5.h"
#include "pdfcore/security/RC4.h"

const StdSecBlock kStdSecPadding = {
    0x28, 0xBF, 0x4E, 0x5E, 0x4E, 0x75, 0x8A, 0x41, 0x64, 0x00, 0x4E,
    0x56, 0xFF, 0xFA, 0x01, 0x08, 0x2E, 0x2E, 0x00, 0xB6, 0xD0, 0x68,
    0x3E, 0x80, 0x2F, 0x0C, 0xA9, 0xFE, 0x64, 0x53, 0x69, 0x7A};

namespace {

// Revision 3 repeats its RC4 step 19 more times with the key bytes XOR-ed
// with the pass number.
void Rc4Passes(const uint8_t* key, size_t keyBytes, uint8_t* data, size_t length, int firstPass,
               int lastPass, int step) {
    uint8_t passKey[16];
    for (int pass = firstPass; pass != lastPass + step; pass += step) {
        for (size_t k = 0; k < keyBytes; ++k) passKey[k] = uint8_t(key[k] ^ pass);
        RC4::Apply({passKey, keyBytes}, {data, length});
    }
}

// The RC4 key that O is encrypted under: MD5 of the padded owner password,
// whose whole 16-byte digest is hashed 50 more times at revision 3.  Some
// writers hash only the first key-length bytes in those rounds; the two
// agree at 128 bits, and `shortRounds` reproduces the other reading for the
// key lengths in between.
StdSecBytes OwnerKey(std::string_view ownerPassword, int revision, size_t keyBytes,
                     bool shortRounds = false) {
    StdSecBlock padded = StdSecPadPassword(ownerPassword);
    MD5::Digest digest = MD5::Of(padded);
    const size_t roundBytes = shortRounds ? std::min<size_t>(keyBytes, 16) : 16;
    if (revision >= 3)
        for (int i = 0; i < 50; ++i) digest = MD5::Of({digest.data(), roundBytes});
    return StdSecBytes(digest.begin(), digest.begin() + std::min<size_t>(keyBytes, 16));
}

size_t CheckedKeyBytes(size_t keyBytes) {
    if (keyBytes < 5 || keyBytes > 16) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    return keyBytes;
}

}  // namespace

size_t StdSecParams::KeyBytes() const {
    if (revision == 2) return 5;
    return size_t(std::clamp(keyLengthBits, 40, 128) / 8);
}

StdSecBlock StdSecPadPassword(std::string_view password) {
    StdSecBlock out;
    size_t n = std::min<size_t>(password.size(), 32);
    // An empty view may hold a null pointer: copy only when there is something.
    if (n > 0) std::memcpy(out.data(), password.data(), n);
    std::memcpy(out.data() + n, kStdSecPadding.data(), 32 - n);
    return out;
}

StdSecBytes StdSecFileKey(const StdSecBlock& paddedUser, const StdSecParams& params) {
    const size_t keyBytes = CheckedKeyBytes(params.KeyBytes());
    MD5 md5;
    md5.Update(paddedUser);
    md5.Update(params.owner);
    const ASUns32 p = static_cast<ASUns32>(params.permissions);
    const uint8_t pBytes[4] = {uint8_t(p), uint8_t(p >> 8), uint8_t(p >> 16), uint8_t(p >> 24)};
    md5.Update(pBytes);
    md5.Update(params.id0);
    MD5::Digest digest = md5.Final();
    if (params.revision >= 3)
        for (int i = 0; i < 50; ++i) digest = MD5::Of({digest.data(), keyBytes});
    return StdSecBytes(digest.begin(), digest.begin() + keyBytes);
}

StdSecBlock StdSecComputeO(std::string_view ownerPassword, std::string_view userPassword,
                           int revision, size_t keyBytes) {
    CheckedKeyBytes(keyBytes);
    StdSecBytes key = OwnerKey(ownerPassword, revision, keyBytes);
    StdSecBlock out = StdSecPadPassword(userPassword);
    RC4::Apply(key, out);
    if (revision >= 3) Rc4Passes(key.data(), key.size(), out.data(), out.size(), 1, 19, 1);
    return out;
}

StdSecBlock StdSecComputeU(const StdSecBytes& fileKey, int revision, const StdSecBytes& id0) {
    CheckedKeyBytes(fileKey.size());
    StdSecBlock out;
    if (revision == 2) {
        out = kStdSecPadding;
        RC4::Apply(fileKey, out);
        return out;
    }
    MD5 md5;
    md5.Update(kStdSecPadding);
    md5.Update(id0);
    MD5::Digest digest = md5.Final();
    RC4::Apply(fileKey, digest);
    Rc4Passes(fileKey.data(), fileKey.size(), digest.data(), digest.size(), 1, 19, 1);
    std::copy(digest.begin(), digest.end(), out.begin());
    // The second half is filler that readers ignore; it is written as the
    // byte positions 16..31 so that our output is reproducible.
    for (size_t i = 16; i < 32; ++i) out[i] = uint8_t(i);
    return out;
}

bool StdSecCheckUserPassword(std::string_view password, const StdSecParams& params,
                             StdSecBytes* fileKey) {
    StdSecBytes key = StdSecFileKey(StdSecPadPassword(password), params);
    StdSecBlock u = StdSecComputeU(key, params.revision, params.id0);
    // Revision 3 only defines the first 16 bytes of U.
    const size_t compared = params.revision == 2 ? 32 : 16;
    if (!std::equal(u.begin(), u.begin() + compared, params.user.begin())) return false;
    if (fileKey) *fileKey = std::move(key);
    return true;
}

namespace {

StdSecBlock RecoverUser(std::string_view ownerPassword, const StdSecParams& params,
                        bool shortRounds) {
    const size_t keyBytes = CheckedKeyBytes(params.KeyBytes());
    StdSecBytes key = OwnerKey(ownerPassword, params.revision, keyBytes, shortRounds);
    StdSecBlock out = params.owner;
    if (params.revision == 2) {
        RC4::Apply(key, out);
    } else {
        // Undo the 20 passes in reverse order: 19 down to 0.
        Rc4Passes(key.data(), key.size(), out.data(), out.size(), 19, 0, -1);
    }
    return out;
}

}  // namespace

StdSecBlock StdSecRecoverUserPassword(std::string_view ownerPassword, const StdSecParams& params) {
    return RecoverUser(ownerPassword, params, false);
}

bool StdSecCheckOwnerPassword(std::string_view password, const StdSecParams& params,
                              StdSecBytes* fileKey) {
    // The recovered bytes are already padded; padding them again is a no-op
    // because they are 32 bytes long.
    StdSecBlock padded = RecoverUser(password, params, false);
    auto text = [&] {
        return std::string_view(reinterpret_cast<const char*>(padded.data()), padded.size());
    };
    if (StdSecCheckUserPassword(text(), params, fileKey)) return true;
    if (params.revision < 3 || params.KeyBytes() >= 16) return false;
    padded = RecoverUser(password, params, true);
    return StdSecCheckUserPassword(text(), params, fileKey);
}

StdSecBytes StdSecObjectKey(const StdSecBytes& fileKey, ASUns32 objNum, ASUns16 gen) {
    MD5 md5;
    md5.Update(fileKey);
    const uint8_t extra[5] = {uint8_t(objNum), uint8_t(objNum >> 8), uint8_t(objNum >> 16),
                              uint8_t(gen), uint8_t(gen >> 8)};
    md5.Update(extra);
    MD5::Digest digest = md5.Final();
    const size_t n = std::min<size_t>(fileKey.size() + 5, 16);
    return StdSecBytes(digest.begin(), digest.begin() + n);
}

ASInt32 StdSecPermissionsFromWord(ASUns16 word, int revision) {
    ASUns32 p = kPermReservedOnes | kPermPrint | kPermModify | kPermCopy | kPermAnnotate;
    if (word & kSecNoPrinting) p &= ~ASUns32(kPermPrint);
    if (word & kSecNoEditing) p &= ~ASUns32(kPermModify);
    if (word & kSecNoCopy) p &= ~ASUns32(kPermCopy);
    if (word & kSecNoNotes) p &= ~ASUns32(kPermAnnotate);
    if (revision == 2) {
        // Revision 2 cannot refuse these four; they are written set, as other
        // 40-bit writers do, so that readers testing them see them granted.
        p |= kPermFillForms | kPermAccessibility | kPermAssemble | kPermPrintHighQuality;
    } else {
        if (word & kSecAllowFill) p |= kPermFillForms;
        if (word & kSecAllowAccess) p |= kPermAccessibility;
        if (word & kSecAllowAssembly) p |= kPermAssemble;
        if (word & kSecAllowHQPrint) p |= kPermPrintHighQuality;
    }
    return static_cast<ASInt32>(p);
}

bool StdSecPermits(ASInt32 permissions, bool owner, ASInt32 mask, int revision) {
    if (owner) return true;
    ASUns32 granted = static_cast<ASUns32>(permissions);
    if (revision == 2) granted |= 0x0F00;
    const ASUns32 wanted = static_cast<ASUns32>(mask);
    return (granted & wanted) == wanted;
}
