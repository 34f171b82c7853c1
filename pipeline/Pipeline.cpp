#include "pipeline/Pipeline.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "base/Formatters.h"
#include "base/Log.h"
#include "pdfcore/AtomicFile.h"
#include "pdfcore/CosDoc.h"
#include "pdfcore/CosWriter.h"
#include "pipeline/Encryption.h"
#include "pipeline/Finalisation.h"
#include "settings/TrimoraPreferences.h"

namespace pipeline {
namespace {

int64_t NowMillis() {
    long sec = 0;
    int ms = 0;
    ClockNow(sec, ms);
    return int64_t(sec) * 1000 + ms;
}

// A phase catches core errors by itself so the run goes on to the next one.
template <typename Body>
void GuardedPhase(Log& log, const char* failureMessage, Body body) {
    try {
        body();
    } catch (const CVellumError& e) {
        log.ReportError(e.GetErrorCode(), failureMessage);
    }
}

// The header version is the target's as the settings give it, whatever the
// input's own header said; a major version of 0 (the default) passes 0 on,
// so the writer keeps the input's version.  Out-of-range values are pulled
// into 1.0-9.9.
void HeaderVersion(const CTrimoraPreferences& prefs, ASInt16& major, ASInt16& minor) {
    if (prefs.Target().pdfMajorVersion <= 0) {
        major = minor = 0;
        return;
    }
    major = ASInt16(std::clamp(prefs.Target().pdfMajorVersion, 1, 9));
    minor = ASInt16(std::clamp(prefs.Target().pdfMinorVersion, 0, 9));
}

void PrepareEncryption(PDDoc doc, const CTrimoraPreferences& prefs) {
    const SecuritySettings& sec = prefs.Security();
    EncryptionRequest r;
    r.encrypt = sec.encrypt;
    r.ownerPassword = sec.ownerPassword;
    r.userPassword = sec.userPassword;
    r.securityWord = sec.securityWord;
    r.keyLengthBits = sec.keyLength;
    PrepareSaveEncryption(PDDocGetCosDoc(doc), r);
}

// The compact form (object streams and a cross-reference stream) always
// with Generate, never with Disable, and with Preserve when the document
// (or any source of a merged one) used object streams.
bool WantObjectStreams(PDDoc doc, const CTrimoraPreferences& prefs) {
    const ASAtom choice = prefs.Optimize().objectStreams;
    if (choice == ASAtomFromString("Generate")) return true;
    if (choice == ASAtomFromString("Disable")) return false;
    return CosDocGetFileInfo(PDDocGetCosDoc(doc)).objectStreams;
}

// keep-smaller applies to a job that allows it (one whole PDF in, one
// out), unless the settings ask for something the output is needed for
// whatever its size: encryption, linearisation, a change of layout.
bool KeepSmallerApplies(const CTrimoraPreferences& prefs) {
    const CRunStatistics& run = const_cast<CTrimoraPreferences&>(prefs).Statistics();
    return prefs.Optimize().keepSmaller && run.keepSmallerAllowed && run.startingSize > 0 &&
           run.startingSize < INT32_MAX && !prefs.Security().encrypt && !prefs.Optimize().linearize &&
           !prefs.Layout().Enabled() && !prefs.Stamp().Enabled() && !prefs.PageScaler().Enabled() &&
           !prefs.PageBoxes().Enabled() && prefs.Viewing().rotate == 0;
}

int64_t Save(PDDoc doc, const std::string& path, const CTrimoraPreferences& prefs) {
    ASUns32 flags = prefs.Optimize().linearize ? (kCosSaveFull | kCosSaveCopy | kCosSaveLinearize)
                                               : (kCosSaveFull | kCosSaveCopy);
    if (WantObjectStreams(doc, prefs)) flags |= kCosSaveObjectStreams;
    ASInt16 major = 0, minor = 0;
    HeaderVersion(prefs, major, minor);
    PrepareEncryption(doc, prefs);
    const char* slow = std::getenv(kSlowSaveVariable);
    CosOutputFileSetDelayForTesting(slow ? std::atoi(slow) : 0);
    const char* named = std::getenv(kNamedTempVariable);
    CosTempFileForceNamedForTesting(named && std::strcmp(named, "1") == 0);
    const char* hook = std::getenv(kFailSaveVariable);
    if (hook && std::strcmp(hook, "1") == 0) {
        const std::string temp = path + ".tmfail";
        PDDocSave(doc, temp, flags, major, minor);
        std::remove(temp.c_str());
        ASRaiseErr(ErrSysFile, kErrFileWrite);
    }
    return PDDocSave(doc, path, flags, major, minor,
                     KeepSmallerApplies(prefs)
                         ? int64_t(const_cast<CTrimoraPreferences&>(prefs).Statistics().startingSize)
                         : -1);
}

}  // namespace

double PercentShrunk(ASInt32 startingSize, ASInt32 endingSize) {
    if (startingSize == 0) return 0;
    return (double(startingSize) - double(endingSize)) * 100.0 / double(startingSize);
}

ASErrorCode Run(PDDoc doc, const std::string& outputPath, CTrimoraPreferences& prefs) {
    static const OperationRegistry standard = [] {
        OperationRegistry r;
        RegisterStandardOperations(r);
        return r;
    }();
    return Run(doc, outputPath, prefs, standard);
}

ASErrorCode Run(PDDoc doc, const std::string& outputPath, CTrimoraPreferences& prefs,
                const OperationRegistry& ops) {
    Log* logp = prefs.GetLog();
    if (!logp) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    Log& log = *logp;
    CRunStatistics& run = prefs.Statistics();
    RunContext ctx{doc, prefs, Statistics(prefs.StatisticsDict()), log};

    // 1-2: timer, sink, share of the work
    run.startMillis = NowMillis();
    ProgressSink& sink = log.Sink();
    sink.DocumentBegin(outputPath.c_str());
    // Image reduction covers colour conversion of raster images as well as
    // downsampling, recompression, quantisation and palettisation.
    const bool imageWork = prefs.Image().Configured() || prefs.Color().images.convert;
    sink.DocumentShare(imageWork ? 0.4 : 1.0, int(PDDocGetNumPages(doc)));

    // 3: output intent; a profile that cannot be read is simply not adopted
    try {
        AdoptOutputIntent(doc, prefs);
    } catch (const CVellumError&) {
    }

    // 4: stamping
    RunDocumentOperations(ops.DocumentOperations(DocumentPoint::Stamping, prefs), ctx);

    // 5: pre-layout page operations
    GuardedPhase(log, "Error while performing prelayout operations", [&] {
        RunPageLoop(ops.PageOperations(PagePhase::PreLayout, prefs), ctx);
    });

    // 6: imposition
    if (prefs.Layout().Enabled())
        RunDocumentOperations(ops.DocumentOperations(DocumentPoint::Layout, prefs), ctx);

    // 7: post-layout: page clean-up and content, then resources, fonts, images
    log.Progress("Starting File Reduction\n");
    GuardedPhase(log, "Error while performing postlayout operations", [&] {
        RunPageLoop(ops.PageOperations(PagePhase::PostLayout, prefs), ctx);
        RunDocumentOperations(ops.DocumentOperations(DocumentPoint::PostLayout, prefs), ctx);
        if (imageWork) {
            log.Progress("Performing image reduction...\n");
            RunDocumentOperations(ops.DocumentOperations(DocumentPoint::ImageReduction, prefs), ctx);
        }
    });

    // 8: document clean-up
    RunDocumentOperations(ops.DocumentOperations(DocumentPoint::DocumentCleanup, prefs), ctx);
    log.Progress("Completed File Reduction\n");

    // 9: information fields and the initial view
    GuardedPhase(log, "Error while performing finalization operations", [&] {
        std::time_t t = std::time(nullptr);
        std::tm now{};
        localtime_r(&t, &now);
        Finalise(doc, prefs, log, now);
    });

    // 10-11: save and measure
    log.Progress("Saving...\n");
    ASErrorCode result = 0;
    try {
        const int64_t written = Save(doc, outputPath, prefs);
        run.keptInput = KeepSmallerApplies(prefs) && written > run.startingSize;
        if (!run.keptInput) log.Progress("File Saved!\n");
        run.endingSize = ASInt32(std::clamp<int64_t>(written, 0, INT32_MAX));
        run.percent = PercentShrunk(run.startingSize, run.endingSize);
    } catch (const CVellumError& e) {
        result = e.GetErrorCode();
    }

    // 12
    run.endMillis = NowMillis();
    if (result == 0) sink.Completed(1.0);
    sink.DocumentEnd();
    return result;
}

}  // namespace pipeline
