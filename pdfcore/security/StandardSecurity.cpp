#include "pdfcore/security/StandardSecurity.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "pdfcore/CosNames.h"
#include "pdfcore/security/MD5.h"
#include "pdfcore/security/RC4.h"

namespace {

const ASAtom K_R = ASAtomFromString("R");
const ASAtom K_V = ASAtomFromString("V");
const ASAtom K_O = ASAtomFromString("O");
const ASAtom K_U = ASAtomFromString("U");

// Strings and streams of object n are RC4-encrypted under a key made from
// the file key and n; both directions are the same operation.
class StdSecCryptFilter final : public CosCryptFilter {
public:
    StdSecCryptFilter(StdSecParams params, StdSecBytes fileKey, bool owner)
        : m_params(std::move(params)), m_key(std::move(fileKey)), m_owner(owner) {}

    void Decrypt(ASUns32 objNum, ASUns16 gen, std::vector<uint8_t>& data) override {
        Apply(objNum, gen, data);
    }
    void Encrypt(ASUns32 objNum, ASUns16 gen, std::vector<uint8_t>& data) override {
        Apply(objNum, gen, data);
    }

    const StdSecParams& Params() const { return m_params; }
    const StdSecBytes& FileKey() const { return m_key; }
    bool Owner() const { return m_owner; }

private:
    void Apply(ASUns32 objNum, ASUns16 gen, std::vector<uint8_t>& data) const {
        if (data.empty()) return;
        RC4::Apply(StdSecObjectKey(m_key, objNum, gen), data);
    }

    StdSecParams m_params;
    StdSecBytes m_key;
    bool m_owner;
};

[[noreturn]] void RaiseNeedPassword() { ASRaiseErr(ErrSysPDDoc, kErrNeedPassword); }

bool IsNumber(CosObj obj) {
    CosType t = CosObjGetType(obj);
    return t == kCosInteger || t == kCosFixed;
}

ASInt32 RequireNumber(CosObj dict, ASAtom key) {
    CosObj value = CosDictGet(dict, key);
    if (!IsNumber(value)) ASRaiseErr(ErrSysCos, kErrExpectedNumber);
    return CosIntegerValue(value);
}

// O and U hold 32 bytes; longer strings are cut, shorter ones leave zeros
// (and then simply fail to authenticate).
void ReadBlock(CosObj dict, ASAtom key, StdSecBlock* out) {
    CosObj value = CosDictGet(dict, key);
    if (CosObjGetType(value) != kCosString) ASRaiseErr(ErrSysCos, kErrExpectedString);
    size_t length = 0;
    const char* bytes = CosStringValue(value, &length);
    out->fill(0);
    std::copy(bytes, bytes + std::min<size_t>(length, out->size()), out->begin());
}

StdSecBytes FirstIdElement(CosObj idArray) {
    if (CosObjGetType(idArray) != kCosArray) return {};
    CosObj first = CosArrayGet(idArray, 0);
    if (CosObjGetType(first) != kCosString) return {};
    std::string bytes = CosStringBytes(first);
    return StdSecBytes(bytes.begin(), bytes.end());
}

CosObj NewHexString(CosDoc doc, const uint8_t* bytes, size_t length) {
    CosObj s = CosNewString(doc, false, reinterpret_cast<const char*>(bytes), length);
    CosStringSetHex(s, true);
    return s;
}

// A new first ID element: a hash of the moment and of the input's name and
// size.  With SOURCE_DATE_EPOCH set (reproducible builds) the moment is that
// value, so the same input gives the same identifier every time.
StdSecBytes MakeFileId(CosDoc doc) {
    const CosDocFileInfo& info = CosDocGetFileInfo(doc);
    MD5 md5;
    const char* epoch = std::getenv("SOURCE_DATE_EPOCH");
    char text[64];
    if (epoch && *epoch) {
        md5.Update("SOURCE_DATE_EPOCH=");
        md5.Update(epoch);
    } else {
        auto now = std::chrono::system_clock::now().time_since_epoch();
        std::snprintf(text, sizeof text, "%lld",
                      static_cast<long long>(
                          std::chrono::duration_cast<std::chrono::nanoseconds>(now).count()));
        md5.Update(text);
    }
    md5.Update(info.path);
    std::snprintf(text, sizeof text, "%lld", static_cast<long long>(info.fileLength));
    md5.Update(text);
    MD5::Digest digest = md5.Final();
    return StdSecBytes(digest.begin(), digest.end());
}

// Makes the trailer's ID start with `id0`, keeping a second element that is
// already there.
void SetTrailerId(CosDoc doc, const StdSecBytes& id0) {
    CosObj trailer = CosDocGetTrailer(doc);
    CosObj old = CosDictGet(trailer, cosnames::ID);
    if (FirstIdElement(old) == id0 && CosArrayLength(old) >= 2) return;
    StdSecBytes id1 = id0;
    if (CosObjGetType(old) == kCosArray && CosObjGetType(CosArrayGet(old, 1)) == kCosString) {
        std::string second = CosStringBytes(CosArrayGet(old, 1));
        if (!second.empty()) id1.assign(second.begin(), second.end());
    }
    CosObj ids = CosNewArray(doc, false, 2);
    CosArrayAppend(ids, NewHexString(doc, id0.data(), id0.size()));
    CosArrayAppend(ids, NewHexString(doc, id1.data(), id1.size()));
    CosDictPut(trailer, cosnames::ID, ids);
}

CosObj BuildEncryptDict(CosDoc doc, const StdSecParams& p) {
    CosObj dict = CosNewDict(doc, false, 8);
    CosDictPutName(dict, cosnames::Filter, false, cosnames::Standard);
    CosDictPut(dict, K_V, CosNewInteger(doc, false, p.version));
    CosDictPut(dict, K_R, CosNewInteger(doc, false, p.revision));
    CosDictPut(dict, cosnames::Length, CosNewInteger(doc, false, p.keyLengthBits));
    CosDictPut(dict, cosnames::P, CosNewInteger(doc, false, p.permissions));
    CosDictPut(dict, K_O, NewHexString(doc, p.owner.data(), p.owner.size()));
    CosDictPut(dict, K_U, NewHexString(doc, p.user.data(), p.user.size()));
    return dict;
}

const StdSecCryptFilter* InputFilter(CosDoc doc) {
    return dynamic_cast<const StdSecCryptFilter*>(CosDocGetReadCrypt(doc));
}

}  // namespace

void RegisterStandardSecurityHandler() {
    CosRegisterSecurityHandler(cosnames::Standard, CosSecurityHandler{&StdSecOpen});
}

bool StdSecReadEncryptDict(CosObj encryptDict, StdSecParams* params) {
    if (CosObjGetType(encryptDict) != kCosDict) ASRaiseErr(ErrSysCos, kErrExpectedDict);
    params->revision = RequireNumber(encryptDict, K_R);
    if (params->revision != 2 && params->revision != 3)
        ASRaiseErr(ErrSysPDDoc, kErrSecRevisionNotImpl);
    // V 0 is an old, undocumented form that readers treat like V 1; a
    // missing V means 0.
    params->version = CosDictKnown(encryptDict, K_V) ? RequireNumber(encryptDict, K_V) : 0;
    if (params->version < 0 || params->version > 2) ASRaiseErr(ErrSysPDDoc, kErrSecRevisionNotImpl);
    if (params->version == 0) params->version = 1;
    ReadBlock(encryptDict, K_O, &params->owner);
    ReadBlock(encryptDict, K_U, &params->user);
    CosObj p = CosDictGet(encryptDict, cosnames::P);
    if (!IsNumber(p)) ASRaiseErr(ErrSysCos, kErrExpectedNumber);
    // Some writers store P unsigned (4294967292 for -4): keep its low 32 bits.
    params->permissions = static_cast<ASInt32>(static_cast<ASUns32>(CosInteger64Value(p)));
    CosObj length = CosDictGet(encryptDict, cosnames::Length);
    params->keyLengthBits = CosObjGetType(length) == kCosInteger ? CosIntegerValue(length) : 40;
    return params->keyLengthBits >= 40 && params->keyLengthBits <= 128;
}

CosSecurityOpenResult StdSecOpen(CosObj encryptDict, CosObj idArray, const std::string& password) {
    StdSecParams params;
    if (!StdSecReadEncryptDict(encryptDict, &params)) ASRaiseErr(ErrSysPDDoc, kErrCannotDecrypt);
    params.id0 = FirstIdElement(idArray);

    // The password is tried as the user password first; it is then tried as
    // the owner password as well, so that a password that is both (or an
    // owner password equal to an empty user password) still counts as the
    // owner's.
    StdSecBytes key;
    bool user = StdSecCheckUserPassword(password, params, &key);
    StdSecBytes ownerKey;
    bool owner = StdSecCheckOwnerPassword(password, params, &ownerKey);
    if (!user && !owner) RaiseNeedPassword();
    if (!user) key = std::move(ownerKey);

    CosSecurityOpenResult result;
    result.ownerAuthenticated = owner;
    result.permissions = params.permissions;
    result.crypt = std::make_unique<StdSecCryptFilter>(std::move(params), std::move(key), owner);
    return result;
}

bool StdSecGetInputEncryption(CosDoc doc, StdSecDocInfo* info) {
    const StdSecCryptFilter* filter = InputFilter(doc);
    if (!filter) return false;
    if (info) {
        info->params = filter->Params();
        info->ownerAuthenticated = filter->Owner();
    }
    return true;
}

bool StdSecDocPermits(CosDoc doc, ASInt32 mask) {
    const CosDocFileInfo& info = CosDocGetFileInfo(doc);
    if (!info.encrypted || info.ownerAuthenticated) return true;
    const StdSecCryptFilter* filter = InputFilter(doc);
    if (filter) return StdSecPermits(filter->Params().permissions, filter->Owner(), mask,
                                     filter->Params().revision);
    return StdSecPermits(info.permissions, false, mask);
}

void SetupStandardEncryption(CosDoc doc, const std::string& ownerPassword,
                             const std::string& userPassword, ASUns16 securityWord,
                             ASInt32 keyLengthBits) {
    CosDocValidate(doc);
    // Encryption is enabled by the password-given bits: a document encrypted
    // with neither password would be protected by nothing.
    if (!(securityWord & (kSecUserPasswordGiven | kSecOwnerPasswordGiven))) RaiseNeedPassword();
    if (keyLengthBits < 40 || keyLengthBits > 128 || keyLengthBits % 8 != 0)
        ASRaiseErr(ErrSysGeneral, kErrBadParm);

    StdSecParams params;
    params.revision = keyLengthBits == 40 ? 2 : 3;
    params.version = params.revision == 2 ? 1 : 2;
    params.keyLengthBits = keyLengthBits;
    params.permissions = StdSecPermissionsFromWord(securityWord, params.revision);

    // Without an owner password the user password doubles as the owner's,
    // as ISO 32000 prescribes: whoever opens the document can then also
    // change its permissions, but the author is never locked out.
    const std::string& owner = ownerPassword.empty() ? userPassword : ownerPassword;

    // The key depends on the first ID element, so the identifier is settled
    // before anything is computed.
    params.id0 = FirstIdElement(CosDictGet(CosDocGetTrailer(doc), cosnames::ID));
    if (params.id0.empty()) params.id0 = MakeFileId(doc);
    SetTrailerId(doc, params.id0);

    params.owner = StdSecComputeO(owner, userPassword, params.revision, params.KeyBytes());
    StdSecBytes key = StdSecFileKey(StdSecPadPassword(userPassword), params);
    params.user = StdSecComputeU(key, params.revision, params.id0);

    CosObj dict = BuildEncryptDict(doc, params);
    CosDocSetWriteCrypt(doc, std::make_unique<StdSecCryptFilter>(params, std::move(key), true),
                        dict);
}

bool KeepInputEncryption(CosDoc doc) {
    const StdSecCryptFilter* input = InputFilter(doc);
    if (!input || input->Owner()) return false;
    const StdSecParams& params = input->Params();
    SetTrailerId(doc, params.id0);
    CosObj dict = BuildEncryptDict(doc, params);
    CosDocSetWriteCrypt(doc,
                        std::make_unique<StdSecCryptFilter>(params, input->FileKey(), false), dict);
    return true;
}
