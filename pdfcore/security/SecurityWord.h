// The program's security word: which passwords were given, and the
// restrictions and permissions of an encryption.  The settings hold it; the
// Standard security handler turns it into a P value.  The four "allow" bits
// only mean something for 128-bit keys.
#pragma once

#include "base/ASError.h"

enum : ASUns16 {
    kSecUserPasswordGiven = 0x0001,
    kSecOwnerPasswordGiven = 0x0002,
    kSecNoPrinting = 0x0004,
    kSecNoEditing = 0x0008,
    kSecNoCopy = 0x0010,
    kSecNoNotes = 0x0020,
    kSecAllowFill = 0x0100,
    kSecAllowAccess = 0x0200,
    kSecAllowAssembly = 0x0400,
    kSecAllowHQPrint = 0x0800,
};
