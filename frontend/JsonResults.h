// Machine-readable results: with -json PATH, one JSON object per document
// is appended to PATH (JSON Lines), so that a script running trimora over
// many files can read what happened to each without parsing console text.
//
// Each record goes out in one write() on a file opened for appending, so
// several trimora processes may share one results file.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/ASError.h"

class CTrimoraPreferences;
class Log;

namespace jobs {

struct ResultRecord {
    std::vector<std::string> inputs;  // one, or all of a merge
    std::string output;               // "" when no output was written
    bool success = false;
    std::string error;                // the core's error text when not
    int64_t sizeBefore = 0;           // bytes of the input(s)
    int64_t sizeAfter = -1;           // bytes of the output, -1 when none
    double elapsed = 0;               // seconds
    unsigned long warnings = 0;
    bool keptInput = false;           // the output is the input's bytes (keep-smaller)
    std::vector<std::pair<std::string, int64_t>> counters;
    std::vector<std::pair<std::string, bool>> flags;
};

// `text` as a JSON string literal: quotes, backslashes and control
// characters escaped; bytes that are not valid UTF-8 become U+FFFD, so a
// file name in another encoding still gives valid JSON.
std::string JsonString(std::string_view text);

// The record as one line of JSON, newline included.  Keys: "input" (the
// first input), "inputs" (only for a merge: every input), "output",
// "success", "error", "size_before", "size_after", "elapsed", "warnings",
// "kept_input", "stats" (every statistics counter and flag of the run).
std::string RecordJson(const ResultRecord& record);

// Opens PATH for appending (created when missing).  False, with the
// reason, when it cannot be written.
bool OpenResultsFile(const std::string& path, std::string& reason);
bool ResultsEnabled();
void CloseResultsFile();

// Times one document and writes its record when results are enabled.
class ResultScope {
public:
    ResultScope(std::vector<std::string> inputs, std::string output, Log& log);
    // The document ran: `result` 0 for a saved output.  `prefs` gives the
    // statistics (may be null when the run never started).
    void Finish(ASErrorCode result, const CTrimoraPreferences* prefs, bool keptInput = false);
    // The document gave no output, for a reason of the job's own.
    void Fail(std::string why);
    // Changes where the output went (an image input becomes NAME.pdf).
    void SetOutput(std::string output) { m_record.output = std::move(output); }
    // A document that ends in a core error escaping the job.
    ~ResultScope();

private:
    void Write(bool success, std::string error, const CTrimoraPreferences* prefs, bool keptInput);

    ResultRecord m_record;
    Log& m_log;
    unsigned long m_warningsAtStart;
    int64_t m_startNanos;
    bool m_done = false;
};

}  // namespace jobs
