// The three kinds of job: the documents of the command line one by one,
// several documents merged into one output, and the entries of a file list.
#pragma once

#include <string>
#include <vector>

#include "pdfcore/PDDoc.h"

class CTrimoraPreferences;
class Log;
struct FileList;

namespace jobs {

// What every job needs besides its inputs.
struct JobOptions {
    std::string output;        // -o
    std::string openPassword;  // -openPass
    bool report = false;       // -report
};

// Each input alone, or all merged when there are at least two inputs and
// -o names something other than an existing directory.  Returns the last
// document's result; core errors other than a failed save escape.
ASErrorCode RunCommandLineJob(const std::vector<std::string>& inputs, const JobOptions& options,
                              CTrimoraPreferences& master, Log& log);

ASErrorCode RunMergeJob(const std::vector<std::string>& inputs, const JobOptions& options,
                        CTrimoraPreferences& master, Log& log);

ASErrorCode RunListJob(const FileList& list, const JobOptions& options, CTrimoraPreferences& master,
                       Log& log);

// Opens `input`, checks that it may be changed (editing, else owner
// access), takes its size as the starting size and runs the pipeline.
ASErrorCode OpenAndRunDocument(const std::string& input, const std::string& output,
                               const std::string& password, CTrimoraPreferences& working);

// Closes a document when the scope ends, whatever happens.
class DocHolder {
public:
    explicit DocHolder(PDDoc doc = nullptr) : m_doc(doc) {}
    ~DocHolder() { Reset(); }
    DocHolder(const DocHolder&) = delete;
    DocHolder& operator=(const DocHolder&) = delete;
    PDDoc Get() const { return m_doc; }
    void Reset(PDDoc doc = nullptr);
    // Gives up ownership without closing.
    PDDoc Release() {
        PDDoc d = m_doc;
        m_doc = nullptr;
        return d;
    }

private:
    PDDoc m_doc;
};

}  // namespace jobs
