// Whole-file fuzz target: open the bytes, count the pages, load every object.
#include <cstddef>
#include <cstdint>

#include "pdfcore/CosDoc.h"
#include "pdfcore/PDDoc.h"
#include "base/ASMem.h"
#include "fuzz/FuzzInit.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    StartCoreOnce();
    PDDoc pd = nullptr;
    try {
        pd = PDDocFromCosDoc(CosDocOpenFromMemory({data, size}, ""));
        try {
            PDDocGetNumPages(pd);
            CosDocLoadAllObjects(PDDocGetCosDoc(pd));
        } catch (const CVellumError&) {
        }
    } catch (const CVellumError&) {
    }
    if (pd) PDDocClose(pd);
    return 0;
}
