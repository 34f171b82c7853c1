#include "frontend/JobRunner.h"

#include "frontend/JobSupport.h"
#include "frontend/JsonResults.h"
#include "base/Log.h"
#include "images/ImageImport.h"
#include "pdfcore/CosNames.h"
#include "pipeline/Pipeline.h"
#include "pipeline/Statistics.h"
#include "settings/FileList.h"
#include "settings/TrimoraPreferences.h"

namespace jobs {
namespace {

// A fresh working copy of the master settings with reset statistics, so
// that nothing one document changes leaks into the next.
CTrimoraPreferences WorkingCopy(const CTrimoraPreferences& master) {
    CTrimoraPreferences working = master.Copy();
    working.Statistics() = CRunStatistics{};
    pipeline::Statistics(working.StatisticsDict()).Reset();
    return working;
}

void ResetStatistics(CTrimoraPreferences& prefs) {
    prefs.Statistics() = CRunStatistics{};
    pipeline::Statistics(prefs.StatisticsDict()).Reset();
}

void ComputePercent(CTrimoraPreferences& prefs) {
    CRunStatistics& run = prefs.Statistics();
    run.percent = pipeline::PercentShrunk(run.startingSize, run.endingSize);
}

PDDoc OpenOrRaise(const std::string& path, const std::string& password) {
    PDDoc doc = PDDocOpen(path, password);
    if (!doc) ASRaiseErr(ErrSysPDDoc, kErrCannotOpen);
    return doc;
}

// Editing rights (0x408), else full owner access (0x2); otherwise the
// document may not be changed.
void CheckMayChange(PDDoc doc) {
    if (!PDDocPermRequest(doc, 0x408) && !PDDocPermRequest(doc, 0x2))
        ASRaiseErr(ErrSysPDDoc, kErrNotPermitted);
}

// Opens a PDF, or converts an image file; null for an image the importer
// rejects (such inputs are passed over silently, as in single mode).
PDDoc OpenInput(const std::string& path, const std::string& password) {
    if (images::ImageFileKindFromName(path) != images::ImageFileKind::None)
        return images::ImportImageFile(path);
    return OpenOrRaise(path, password);
}

void AppendAllPages(PDDoc target, PDDoc source) {
    const ASInt32 n = PDDocGetNumPages(source);
    if (n > 0) PDDocInsertPages(target, PDDocGetNumPages(target) - 1, source, 0, n);
}

// Copies the selected pages of `source` to the end of `target`; a box other
// than the media box then gives the copies' extent.
void AppendSelectedPages(PDDoc target, PDDoc source, const FileListEntry& entry) {
    const ASInt32 n = PDDocGetNumPages(source);
    const std::vector<ASInt32> pages = SelectPages(entry.ranges, entry.rangeType, n);
    if (pages.empty()) return;
    const ASInt32 first = PDDocGetNumPages(target);
    PDDocInsertPageList(target, first - 1, source, pages);
    const ASAtom box = ASAtomFromString(entry.box);
    if (box == ASAtomNull || box == cosnames::MediaBox) return;
    for (ASInt32 at = first; at < PDDocGetNumPages(target); ++at) {
        CosObj copy = PDDocGetPageObj(target, at);
        CosObj extent = PDPageGetInheritedAttr(copy, box);
        if (CosObjGetType(extent) == kCosArray && CosArrayLength(extent) == 4)
            CosDictPut(copy, cosnames::MediaBox, CosObjCopy(extent, PDDocGetCosDoc(target)));
    }
}

// Tells the log's progress sink that a job run starts, and that it ends
// however it ends (a core error escaping the job included).
class JobNotice {
public:
    explicit JobNotice(Log& log) : m_sink(log.Sink()) { m_sink.JobBegin(); }
    ~JobNotice() { m_sink.JobEnd(); }
    JobNotice(const JobNotice&) = delete;
    JobNotice& operator=(const JobNotice&) = delete;

private:
    ProgressSink& m_sink;
};

bool IsWholeFile(const FileListEntry& e) {
    const bool allPages = e.ranges.size() == 1 && e.ranges[0].from <= 1 && e.ranges[0].to == -1;
    const ASAtom box = ASAtomFromString(e.box);
    return allPages && e.rangeType == kRangeAll && (box == ASAtomNull || box == cosnames::MediaBox);
}

// Single mode for one input (also used by list entries that stand for one
// whole file).
ASErrorCode RunOneInput(const std::string& input, const std::string& outputPath,
                        const std::string& password, const CTrimoraPreferences& master,
                        const JobOptions& options, Log& log) {
    log.Info("Attempting to shrink input file: %s\n", input.c_str());
    log.Info("Saving to output file: %s\n", outputPath.c_str());
    CTrimoraPreferences working = WorkingCopy(master);
    ResultScope record({input}, outputPath, log);
    JobClock clock;
    clock.Start();
    ASErrorCode result = 0;
    try {
        if (images::ImageFileKindFromName(input) != images::ImageFileKind::None) {
            DocHolder doc(images::ImportImageFile(input));
            if (!doc.Get()) {
                ++Tally().failed;  // passed over silently, but no output came of it
                record.Fail("the image file cannot be read");
                return 0;
            }
            working.Statistics().startingSize = FileSizeOrRaise(input);
            const std::string pdfName = PdfNameForImage(outputPath);
            record.SetOutput(pdfName);
            WarnIfHardLinked(pdfName, log);
            result = pipeline::Run(doc.Get(), pdfName, working);
        } else {
            WarnIfHardLinked(outputPath, log);
            working.Statistics().keepSmallerAllowed = true;
            result = OpenAndRunDocument(input, outputPath, password, working);
            // The save left the target alone: the input's bytes stand for
            // the output (already so when the target is the input).
            if (result == 0 && working.Statistics().keptInput) CopyFileOver(input, outputPath);
        }
    } catch (const CVellumError& e) {
        record.Finish(e.GetErrorCode(), nullptr);
        throw;
    }
    record.Finish(result, &working, working.Statistics().keptInput);
    CountResult(result);
    clock.Stop();
    ComputePercent(working);
    if (result == 0) PrintSummary(working, clock.timer, options.report, log);
    return result;
}

}  // namespace

void DocHolder::Reset(PDDoc doc) {
    if (m_doc) PDDocClose(m_doc);
    m_doc = doc;
}

ASErrorCode OpenAndRunDocument(const std::string& input, const std::string& output,
                               const std::string& password, CTrimoraPreferences& working) {
    DocHolder doc(OpenOrRaise(input, password));
    CheckMayChange(doc.Get());
    working.Statistics().startingSize = FileSizeOrRaise(input);
    ASErrorCode result = pipeline::Run(doc.Get(), output, working);
    ComputePercent(working);
    return result;
}

ASErrorCode RunCommandLineJob(const std::vector<std::string>& inputs, const JobOptions& options,
                              CTrimoraPreferences& master, Log& log) {
    JobNotice notice(log);
    if (inputs.size() >= 2 && !options.output.empty() && !IsDirectory(options.output))
        return RunMergeJob(inputs, options, master, log);
    ASErrorCode result = 0;
    for (const std::string& input : inputs) {
        const std::string out = options.output.empty() ? input : OutputNameFor(options.output, input);
        result = RunOneInput(input, out, options.openPassword, master, options, log);
    }
    return result;
}

// The merge itself, from the first input to the saved output.
static ASErrorCode MergeInto(const std::vector<std::string>& inputs, const JobOptions& options,
                             CTrimoraPreferences& master, Log& log, JobClock& clock, ResultScope& record);

ASErrorCode RunMergeJob(const std::vector<std::string>& inputs, const JobOptions& options,
                        CTrimoraPreferences& master, Log& log) {
    JobClock clock;
    clock.Start();
    ResetStatistics(master);
    ResultScope record(inputs, options.output, log);
    try {
        return MergeInto(inputs, options, master, log, clock, record);
    } catch (const CVellumError& e) {
        record.Finish(e.GetErrorCode(), nullptr);
        throw;
    }
}

static ASErrorCode MergeInto(const std::vector<std::string>& inputs, const JobOptions& options,
                             CTrimoraPreferences& master, Log& log, JobClock& clock, ResultScope& record) {
    DocHolder target;
    ASInt32 startingSize = 0;
    for (const std::string& input : inputs) {
        log.Info("Merging input file: %s\n", input.c_str());
        DocHolder doc(OpenInput(input, options.openPassword));
        if (!doc.Get()) continue;
        const int64_t sum = int64_t(startingSize) + FileSizeOrRaise(input);
        startingSize = sum > INT32_MAX ? INT32_MAX : ASInt32(sum);
        if (!target.Get())
            target.Reset(doc.Release());
        else
            AppendAllPages(target.Get(), doc.Get());
    }
    if (!target.Get()) {
        record.Fail("no input could be read");
        return 0;
    }
    log.Info("Saving to output file: %s\n", options.output.c_str());
    master.Statistics().startingSize = startingSize;
    WarnIfHardLinked(options.output, log);
    const ASErrorCode result = pipeline::Run(target.Get(), options.output, master);
    record.Finish(result, &master);
    CountResult(result);
    target.Reset();
    clock.Stop();
    ComputePercent(master);
    if (result == 0) PrintSummary(master, clock.timer, options.report, log);
    return result;
}

ASErrorCode RunListJob(const FileList& list, const JobOptions& options, CTrimoraPreferences& master,
                       Log& log) {
    JobNotice notice(log);
    std::string output = list.outputDir.empty() ? options.output : list.outputDir;
    if (output.empty() && list.merge)
        for (const FileListEntry& e : list.entries)
            if (!e.output.empty()) {
                output = e.output;
                break;
            }
    auto passwordFor = [&](const FileListEntry& e) {
        return e.password.empty() ? options.openPassword : e.password;
    };

    if (!output.empty() && !IsDirectory(output)) {
        // Everything into one document.
        JobClock clock;
        clock.Start();
        ResetStatistics(master);
        std::vector<std::string> sources;
        for (const FileListEntry& e : list.entries) sources.push_back(e.src);
        ResultScope record(sources, output, log);
        DocHolder target(PDDocCreate());
        for (const FileListEntry& e : list.entries) {
            log.Info("Merging input file: %s\n", e.src.c_str());
            DocHolder doc(OpenInput(e.src, passwordFor(e)));
            if (doc.Get()) AppendSelectedPages(target.Get(), doc.Get(), e);
        }
        log.Info("Saving to output file: %s\n", output.c_str());
        master.Statistics().startingSize = 0;
        WarnIfHardLinked(output, log);
        const ASErrorCode result = pipeline::Run(target.Get(), output, master);
        record.Finish(result, &master);
        CountResult(result);
        target.Reset();
        clock.Stop();
        if (result == 0) PrintSummary(master, clock.timer, options.report, log);
        return result;
    }

    ASErrorCode result = 0;
    for (const FileListEntry& e : list.entries) {
        std::string out;
        if (!e.output.empty())
            out = list.outputDir.empty() ? e.output : JoinPath(list.outputDir, e.output);
        else if (output.empty())
            out = e.src;
        else
            out = OutputNameFor(output, e.src);

        if (IsWholeFile(e)) {
            result = RunOneInput(e.src, out, passwordFor(e), master, options, log);
            continue;
        }
        log.Info("Attempting to shrink input file: %s\n", e.src.c_str());
        log.Info("Saving to output file: %s\n", out.c_str());
        CTrimoraPreferences working = WorkingCopy(master);
        ResultScope record({e.src}, out, log);
        JobClock clock;
        clock.Start();
        DocHolder assembled(PDDocCreate());
        {
            DocHolder doc(OpenInput(e.src, passwordFor(e)));
            if (!doc.Get()) {
                ++Tally().failed;
                record.Fail("the image file cannot be read");
                continue;
            }
            CheckMayChange(doc.Get());
            AppendSelectedPages(assembled.Get(), doc.Get(), e);
        }
        // A selection is a new document: its size is not comparable with
        // the whole file's, so no sizes are reported for it.
        working.Statistics().startingSize = 0;
        WarnIfHardLinked(out, log);
        result = pipeline::Run(assembled.Get(), out, working);
        record.Finish(result, &working);
        CountResult(result);
        assembled.Reset();
        clock.Stop();
        if (working.Statistics().startingSize > 0) ComputePercent(working);
        if (result == 0) PrintSummary(working, clock.timer, options.report, log);
    }
    return result;
}

}  // namespace jobs
