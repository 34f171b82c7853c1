#include "pipeline/Encryption.h"

#include "pdfcore/security/StandardSecurity.h"

namespace pipeline {

void PrepareSaveEncryption(CosDoc doc, const EncryptionRequest& r) {
    if (r.encrypt)
        SetupStandardEncryption(doc, r.ownerPassword, r.userPassword, r.securityWord, r.keyLengthBits);
    else
        KeepInputEncryption(doc);
}

}  // namespace pipeline
