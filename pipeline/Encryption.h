// Encryption at save time, kept in its own file so that the security
// handler's header and the settings header never meet in one unit.
#pragma once

#include <string>

#include "pdfcore/CosDoc.h"

namespace pipeline {

struct EncryptionRequest {
    bool encrypt = false;
    std::string ownerPassword;
    std::string userPassword;
    ASUns16 securityWord = 0;
    ASInt32 keyLengthBits = 40;
};

// With `encrypt` on, installs new encryption from the request; otherwise an
// encrypted input that was not opened with its owner password keeps its
// protection.
void PrepareSaveEncryption(CosDoc doc, const EncryptionRequest& request);

}  // namespace pipeline
