// The program's main routine.  The order of work: create the log, parse the
// command line (or print the usage), route the log, start the core, run the
// jobs, shut the core down, report a failed job, close the log.
#include "frontend/JobDriver.h"

#include <cstdlib>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "filters/Filters.h"
#include "frontend/JobSupport.h"
#include "frontend/JsonResults.h"
#include "pdfcore/CosDoc.h"
#include "base/ASMem.h"

namespace {

// The core's status messages (raised errors, the end-of-run reports) go to
// the log's Debug channel, so -debug shows them.
void StatusToLog(const char* text, void* clientData) {
    static_cast<Log*>(clientData)->Write(Log::kDebug, text);
}

void RouteLog(const CommandLineOptions& opts, Log& log) {
    if (opts.logFile[0]) {
        log.SetFileName(opts.logFile);
        log.SetDestinations(Log::kInfo, LogToFile | LogToStderr);
        log.SetDestinations(Log::kError, LogToFile | LogToStderr);
        log.SetDestinations(Log::kProgress, LogToFile | LogToStdout);
        log.SetDestinations(Log::kDebug, LogToFile | LogToStdout);
    }
    if (opts.progress) log.SetChannelOff(Log::kProgress, false);
    if (opts.debug) log.SetChannelOff(Log::kDebug, false);
}

// Starts the core, runs the jobs and returns the job result; a core error
// that nothing below handled becomes the result.
ASErrorCode StartCoreAndRunJobs(const CommandLineOptions& opts, Log& log) {
    try {
        VellumDataRec rec;
        rec.vellumFlags = VellumFlagsFromEnvironment();
        rec.statusProc = StatusToLog;
        rec.statusClientData = &log;
        VellumInit(&rec);
        CosCoreInit();
        return RunJobs(opts, log);
    } catch (const CVellumError& e) {
        return e.GetErrorCode();
    } catch (const std::bad_alloc&) {
        return ErrBuildCode(ErrSevNormal, ErrSysGeneral, kErrNoMemory);
    } catch (const std::exception&) {
        // Anything else escaping a job is a fault of ours, not of the input:
        // end the job as an internal error instead of terminating.
        return ErrBuildCode(ErrSevNormal, ErrSysGeneral, kErrInternal);
    } catch (...) {
        // Exceptions of no standard type (private ones of a subsystem that
        // slipped past its own handler) end the job the same way.
        return ErrBuildCode(ErrSevNormal, ErrSysGeneral, kErrInternal);
    }
}

}  // namespace

unsigned VellumFlagsFromEnvironment() {
    const char* text = getenv("TRIMORA_VELLUM_FLAGS");
    if (!text || !*text) return 0;
    char* end = nullptr;
    unsigned long v = strtoul(text, &end, 0);
    if (*end != '\0' || v > 0xFFFFFFFFul) return 0;
    return static_cast<unsigned>(v);
}

int RunTrimora(int argc, char** argv) {
    Log log;
    NullProgressSink sink;
    log.SetProgressSink(&sink);

    CommandLineOptions& opts = GlobalCommandLine();
    std::vector<ArgEntry> table = BuildOptionTable(opts);
    std::vector<char*> args(argv, argv + argc);
    // -json PATH is taken out before the option table sees the line, so
    // the table, the usage and every other option stay as they are.
    std::string resultsPath;
    bool resultsOptionOk = true;
    for (size_t i = 1; i < args.size();) {
        if (std::string(args[i]) == "--") break;
        if (std::string(args[i]) != "-json") {
            ++i;
            continue;
        }
        if (i + 1 < args.size() && args[i + 1][0] != '\0') {
            resultsPath = args[i + 1];
            args.erase(args.begin() + long(i), args.begin() + long(i) + 2);
        } else {
            resultsOptionOk = false;
            args.erase(args.begin() + long(i));
        }
    }
    argc = int(args.size());
    args.push_back(nullptr);
    int count = argc;
    const bool parsedOk = ParseArgs(table.data(), count, args.data()) && resultsOptionOk;
    if (WantsUsage(opts, parsedOk, count)) return RunUsagePath(opts, table.data(), stdout, stderr);

    // Leftover arguments that look like options (unknown ones, or names
    // behind "--" that begin with '-') are passed over.
    for (int i = 1; i < count; ++i)
        if (args[i][0] != '-') opts.inputs.emplace_back(args[i]);

    RouteLog(opts, log);
    if (!resultsPath.empty()) {
        // A batch that asked for results must not run without them.
        std::string reason;
        if (!jobs::OpenResultsFile(resultsPath, reason)) {
            log.Error("Cannot write the results file %s: %s\n", resultsPath.c_str(), reason.c_str());
            log.Close();
            return 2;
        }
    }
    filters::SetWarningSink([&log](const std::string& text) {
        if (!text.empty() && text.back() == '\n')
            log.Warning("%s", text.c_str());
        else
            log.Warning("%s\n", text.c_str());
    });

    const ASErrorCode result = StartCoreAndRunJobs(opts, log);

    VellumTerm();
    jobs::CloseResultsFile();
    filters::SetWarningSink(nullptr);
    if (result != 0) log.ReportError(result, "Error during processing");
    log.Close();
    if (!StrictExitRequested()) return 0;
    return StrictExitStatus(result != 0 || jobs::Tally().failed > 0,
                            log.Count(Log::kWarning) + log.Count(Log::kError) > 0);
}

bool StrictExitRequested() {
    const char* text = getenv(kStrictExitVariable);
    return text && std::string(text) == "1";
}

int StrictExitStatus(bool anyFailed, bool anyWarning) {
    if (anyFailed) return 2;
    return anyWarning ? 3 : 0;
}
