// The core's one-time start-up, for the fuzz targets that open or build
// documents: called at the top of every input, it runs only the first time.
#pragma once

#include "base/ASMem.h"
#include "pdfcore/CosDoc.h"

inline void StartCoreOnce() {
    static const bool started = [] {
        VellumDataRec rec;
        VellumInit(&rec);
        CosCoreInit();
        return true;
    }();
    (void)started;
}
